#include "base/wire.h"

#include <algorithm>
#include <cstring>

namespace {

bool fits(std::span<const uint8_t> b, size_t off, size_t width) {
    return off <= b.size() && width <= b.size() - off;
}

}  // namespace

uint8_t wire_u8(std::span<const uint8_t> b, size_t off) {
    return fits(b, off, 1) ? b[off] : 0;
}
uint16_t wire_be16(std::span<const uint8_t> b, size_t off) {
    return fits(b, off, 2) ? be16_get(b.data() + off) : 0;
}
uint32_t wire_be32(std::span<const uint8_t> b, size_t off) {
    return fits(b, off, 4) ? be32_get(b.data() + off) : 0;
}
uint64_t wire_be64(std::span<const uint8_t> b, size_t off) {
    return fits(b, off, 8) ? be64_get(b.data() + off) : 0;
}

std::string_view wire_text(std::span<const uint8_t> b, size_t off, size_t width) {
    if (off >= b.size()) return {};
    size_t avail = std::min(width, b.size() - off);
    const char *p = reinterpret_cast<const char *>(b.data() + off);
    const void *nul = std::memchr(p, 0, avail);
    size_t len = nul ? static_cast<size_t>(static_cast<const char *>(nul) - p) : avail;
    return {p, len};
}

size_t wire_text_copy(char *dst, size_t dst_size, std::span<const uint8_t> b, size_t off,
                      size_t width) {
    if (dst_size == 0) return 0;
    std::string_view t = wire_text(b, off, width);
    size_t n = std::min(t.size(), dst_size - 1);
    if (n) std::memcpy(dst, t.data(), n);
    dst[n] = '\0';
    return n;
}

void wire_text_put(uint8_t *field, size_t width, std::string_view text) {
    if (width == 0) return;
    std::memset(field, 0, width);
    if (!text.empty()) std::memcpy(field, text.data(), std::min(text.size(), width - 1));
}

uint64_t wire_get_num(std::span<const uint8_t> b, const wire_field &f) {
    switch (f.kind) {
        case wire_kind::u8:
            return wire_u8(b, f.offset);
        case wire_kind::be16:
            return wire_be16(b, f.offset);
        case wire_kind::be32:
            return wire_be32(b, f.offset);
        case wire_kind::be64:
            return wire_be64(b, f.offset);
        case wire_kind::text:
        case wire_kind::bytes:
            return 0;
    }
    return 0;
}

std::string_view wire_get_text(std::span<const uint8_t> b, const wire_field &f) {
    return f.kind == wire_kind::text ? wire_text(b, f.offset, f.width) : std::string_view{};
}

void wire_put_num(std::span<uint8_t> b, const wire_field &f, uint64_t v) {
    static constexpr size_t widths[] = {1, 2, 4, 8, 0, 0};
    size_t w = widths[static_cast<size_t>(f.kind)];
    if (w == 0 || !fits(b, f.offset, w)) return;
    uint8_t *p = b.data() + f.offset;
    switch (f.kind) {
        case wire_kind::u8:
            *p = static_cast<uint8_t>(v);
            break;
        case wire_kind::be16:
            be16_put(p, static_cast<uint16_t>(v));
            break;
        case wire_kind::be32:
            be32_put(p, static_cast<uint32_t>(v));
            break;
        case wire_kind::be64:
            be64_put(p, v);
            break;
        case wire_kind::text:
        case wire_kind::bytes:
            break;
    }
}

void wire_put_text(std::span<uint8_t> b, const wire_field &f, std::string_view text) {
    if (f.kind == wire_kind::text && fits(b, f.offset, f.width))
        wire_text_put(b.data() + f.offset, f.width, text);
}

std::span<const uint8_t> wire_get_bytes(std::span<const uint8_t> b, const wire_field &f) {
    if (f.kind != wire_kind::bytes || !fits(b, f.offset, f.width)) return {};
    return b.subspan(f.offset, f.width);
}

void wire_put_bytes(std::span<uint8_t> b, const wire_field &f, std::span<const uint8_t> v) {
    if (f.kind != wire_kind::bytes || !fits(b, f.offset, f.width)) return;
    uint8_t *p = b.data() + f.offset;
    std::memset(p, 0, f.width);
    if (!v.empty()) std::memcpy(p, v.data(), std::min<size_t>(v.size(), f.width));
}
