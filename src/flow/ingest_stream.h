// Reading flow files: a nanopb input stream over an open spool file and the
// decode of the file's one ArcMessage.
//
// A flow file is exactly one ArcMessage in protobuf wire format with no
// length prefix; the message ends where the file ends. The decoder works in
// the caller's fixed storage and allocates nothing.
#pragma once

#include <pb_decode.h>

#include <cstdio>

#include "arc.pb.h"

// nanopb read function; stream->state is the FILE *. Reads exactly count
// bytes and returns true only when all of them were read. Once the file is at
// its end it sets stream->bytes_left to 0, which the decoder takes as the
// end of a complete message when it stops between two fields.
bool tallyd_callback(pb_istream_t *stream, pb_byte_t *buf, size_t count);

// Decodes the rest of file as one ArcMessage into *msg (cleared first).
// False when the file is not a valid message: more than 50 entries, a text
// longer than its storage, a missing required field, a cut-off field.
bool tallyd_decode_arc(FILE *file, ArcMessage *msg);
