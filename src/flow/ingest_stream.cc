#include "flow/ingest_stream.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

// Refills the buffer with one read(). A regular file returns a short read
// only at its end, so after one no further read is tried.
void refill(arc_source *src) {
    src->pos = 0;
    src->end = 0;
    ssize_t got;
    do {
        got = read(src->fd, src->buffer.data(), src->buffer.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        src->failed = true;
        return;
    }
    src->end = static_cast<size_t>(got);
    src->eof = src->end < src->buffer.size();
}

}  // namespace

bool tallyd_callback(pb_istream_t *stream, pb_byte_t *buf, size_t count) {
    auto *src = static_cast<arc_source *>(stream->state);
    // Nearly every call is for a few bytes already in the buffer, most for
    // the single bytes of tags and varints.
    if (src->end - src->pos >= count) {
        const pb_byte_t *from = src->buffer.data() + src->pos;
        if (count == 1)
            buf[0] = from[0];
        else
            std::memcpy(buf, from, count);
        src->pos += count;
        return true;
    }
    while (count > 0 && !src->failed) {
        if (src->pos == src->end) {
            if (src->eof) {
                stream->bytes_left = 0;
                break;
            }
            refill(src);
            continue;
        }
        size_t n = std::min(count, src->end - src->pos);
        std::memcpy(buf, src->buffer.data() + src->pos, n);
        src->pos += n;
        buf += n;
        count -= n;
    }
    return count == 0;
}

bool tallyd_decode_arc(arc_source *src, ArcMessage *msg) {
    pb_istream_t stream{};
    stream.callback = tallyd_callback;
    stream.state = src;
    stream.bytes_left = SIZE_MAX;
    return pb_decode(&stream, ArcMessage_fields, msg);
}
