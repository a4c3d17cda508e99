#include "entity/text.h"

#include <cstring>

char *tallyd_str_toupper(char *text) {
    for (char *p = text; p && *p; ++p)
        if (*p >= 'a' && *p <= 'z') *p = static_cast<char>(*p - 32);
    return text;
}

char *tallyd_str_tolower(char *text) {
    for (char *p = text; p && *p; ++p)
        if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p + 32);
    return text;
}

int tallyd_mac17_to_mac12(const char *mac17, char *out) {
    if (!mac17 || !out || std::strlen(mac17) != 17) return -1;
    // Pairs sit at 0, 3, 6, ...; the separators between them are never read.
    for (int i = 0; i < 6; ++i) {
        out[2 * i] = mac17[3 * i];
        out[2 * i + 1] = mac17[3 * i + 1];
    }
    out[12] = '\0';
    return 0;
}

int tallyd_mac12_to_mac17(const char *mac12, char *out) {
    if (!mac12 || !out || std::strlen(mac12) != 12) return -1;
    for (int i = 0; i < 6; ++i) {
        out[3 * i] = mac12[2 * i];
        out[3 * i + 1] = mac12[2 * i + 1];
        if (i < 5) out[3 * i + 2] = ':';
    }
    out[17] = '\0';
    return 0;
}

// Bytes count as signed chars, as the stored ids were hashed: a byte above
// 127 adds a negative amount.
uint32_t tallyd_str_hash(const char *text) {
    uint32_t a = 63689, h = 0;
    for (const char *p = text; p && *p; ++p) {
        h = h * a + static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(*p)));
        a *= 378551u;
    }
    return h;
}
