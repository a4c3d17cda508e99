// Reading flow files: a nanopb input stream over an open spool file and the
// decode of the file's one ArcMessage.
//
// A flow file is exactly one ArcMessage in protobuf wire format with no
// length prefix; the message ends where the file ends. The stream reads the
// file through a buffer the caller owns (one read() per buffer-full rather
// than per field) and the decoder works in the caller's fixed storage;
// nothing is allocated per file.
#pragma once

#include <pb_decode.h>

#include <cstddef>
#include <span>

#include "arc.pb.h"

// An open spool file as the stream reads it: the descriptor (owned by the
// caller) and the bytes read from it but not yet handed to the decoder.
struct arc_source {
    int fd = -1;
    std::span<pb_byte_t> buffer;
    size_t pos = 0;
    size_t end = 0;
    // A read returned fewer bytes than asked: the file has nothing more.
    bool eof = false;
    // A read failed: the file cannot be read to its end.
    bool failed = false;
};

// nanopb read function; stream->state is the arc_source. Reads exactly count
// bytes and returns true only when all of them were read. Once the file is at
// its end it sets stream->bytes_left to 0, which the decoder takes as the
// end of a complete message when it stops between two fields.
bool tallyd_callback(pb_istream_t *stream, pb_byte_t *buf, size_t count);

// Decodes the rest of the file behind src as one ArcMessage into *msg
// (cleared first). False when the file is not a valid message: more than 50
// entries, a text longer than its storage, a missing required field, a
// cut-off field, or a read error.
bool tallyd_decode_arc(arc_source *src, ArcMessage *msg);
