#include "flow/ingest_stream.h"

#include <cstdint>

bool tallyd_callback(pb_istream_t *stream, pb_byte_t *buf, size_t count) {
    FILE *file = static_cast<FILE *>(stream->state);
    // Most reads are one byte of a tag or varint: the unlocked read keeps
    // them cheap, and the stream is only ever used from this thread.
    size_t got = fread_unlocked(buf, 1, count, file);
    if (feof_unlocked(file)) stream->bytes_left = 0;
    return got == count;
}

bool tallyd_decode_arc(FILE *file, ArcMessage *msg) {
    pb_istream_t stream{};
    stream.callback = tallyd_callback;
    stream.state = file;
    stream.bytes_left = SIZE_MAX;
    return pb_decode(&stream, ArcMessage_fields, msg);
}
