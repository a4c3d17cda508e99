// Big-endian fields of messages and replies, read and written byte by byte.
//
// The controller speaks its own (big-endian) memory order on the wire; these
// helpers give the same bytes on the x86-64 build host and on the MIPS target.
// The span readers never look outside the span: a field that does not fit
// reads as zero (numbers) or as the part that fits (texts), so a short or
// truncated message can never make a handler read foreign memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

inline uint16_t be16_get(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}
inline uint32_t be32_get(const uint8_t *p) {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}
inline uint64_t be64_get(const uint8_t *p) {
    return uint64_t{be32_get(p)} << 32 | be32_get(p + 4);
}
inline void be16_put(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}
inline void be32_put(uint8_t *p, uint32_t v) {
    for (int i = 3; i >= 0; --i, v >>= 8) p[i] = static_cast<uint8_t>(v);
}
inline void be64_put(uint8_t *p, uint64_t v) {
    be32_put(p, static_cast<uint32_t>(v >> 32));
    be32_put(p + 4, static_cast<uint32_t>(v));
}

// Bounded readers: 0 when [off, off + width) is not inside b.
uint8_t wire_u8(std::span<const uint8_t> b, size_t off);
uint16_t wire_be16(std::span<const uint8_t> b, size_t off);
uint32_t wire_be32(std::span<const uint8_t> b, size_t off);
uint64_t wire_be64(std::span<const uint8_t> b, size_t off);

// A text field of fixed width: the bytes up to the first zero, cut at the
// width (a field without its terminating zero) and at the end of b.
std::string_view wire_text(std::span<const uint8_t> b, size_t off, size_t width);

// Copies a text field into dst (size dst_size, at least 1) as a zero-terminated
// text, cut at dst_size - 1 bytes. Returns the length copied.
size_t wire_text_copy(char *dst, size_t dst_size, std::span<const uint8_t> b, size_t off,
                      size_t width);

// Writes text into a fixed-width field, zero-filled, cut at width - 1 bytes so
// that the field always ends in a zero.
void wire_text_put(uint8_t *field, size_t width, std::string_view text);

// A fixed layout described as data: the daemon's handlers and tallyctl read
// and build the same messages from the same tables.
// bytes: a field of raw bytes (an IPv6 address), copied as it stands.
enum class wire_kind : uint8_t { u8, be16, be32, be64, text, bytes };

struct wire_field {
    const char *name;
    uint16_t offset;
    uint16_t width;  // bytes; for numbers implied by the kind
    wire_kind kind;
};

uint64_t wire_get_num(std::span<const uint8_t> b, const wire_field &f);
std::string_view wire_get_text(std::span<const uint8_t> b, const wire_field &f);
// Writes a number or text field into b; fields that do not fit are skipped.
void wire_put_num(std::span<uint8_t> b, const wire_field &f, uint64_t v);
void wire_put_text(std::span<uint8_t> b, const wire_field &f, std::string_view text);
// The bytes of a bytes field: all of it, or an empty span when it does not fit.
std::span<const uint8_t> wire_get_bytes(std::span<const uint8_t> b, const wire_field &f);
// Copies v into a bytes field, zero-filled after v and cut at the width.
void wire_put_bytes(std::span<uint8_t> b, const wire_field &f, std::span<const uint8_t> v);
