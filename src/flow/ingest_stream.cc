#include "flow/ingest_stream.h"

#include <cstdint>

bool tallyd_callback(pb_istream_t *stream, pb_byte_t *buf, size_t count) {
    FILE *file = static_cast<FILE *>(stream->state);
    // Most reads are the single bytes of tags and varints: getc_unlocked
    // takes them straight from the stdio buffer, which matters at tens of
    // thousands of entries per run. The stream is only used on this thread.
    size_t got;
    if (count == 1) {
        int c = getc_unlocked(file);
        got = c == EOF ? 0 : 1;
        if (got) buf[0] = static_cast<pb_byte_t>(c);
    } else {
        got = fread_unlocked(buf, 1, count, file);
    }
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
