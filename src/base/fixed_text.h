// A zero-terminated copy of a text in a fixed buffer of the caller's frame.
//
// Message texts arrive as views cut at their field width; SQL helpers, the
// dictionaries and the escaping routine want zero-terminated texts they may
// change in place. fixed_text<N> holds up to N characters plus the zero, so a
// field of width N without its terminating zero still fits whole. Nothing is
// allocated.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

template <size_t N>
struct fixed_text {
    char text[N + 1];

    fixed_text() { text[0] = '\0'; }
    explicit fixed_text(std::string_view v) { assign(v); }

    // Copies v, cut at N characters (and at an embedded zero).
    void assign(std::string_view v) {
        size_t n = v.size() < N ? v.size() : N;
        if (n) std::memcpy(text, v.data(), n);
        text[n] = '\0';
    }
    char *data() { return text; }
    const char *c_str() const { return text; }
    std::string_view view() const { return text; }
    bool has(char c) const { return std::strchr(text, c) != nullptr; }
};
