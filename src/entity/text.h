// Text and MAC helpers shared by ingestion, events and reports (the quote
// escaping of texts put into SQL is in db/sql.h).
//
// All work in place or into caller buffers of the stated minimum size.
#pragma once

#include <cstdint>

char *tallyd_str_toupper(char *text);
char *tallyd_str_tolower(char *text);

// "aa:bb:cc:dd:ee:ff" (any separators) -> "aabbccddeeff"; out >= 13 bytes.
// -1 when the input is not 17 characters long.
int tallyd_mac17_to_mac12(const char *mac17, char *out);
// "aabbccddeeff" -> "aa:bb:cc:dd:ee:ff"; out >= 18 bytes. -1 unless 12 long.
int tallyd_mac12_to_mac17(const char *mac12, char *out);

uint32_t tallyd_str_hash(const char *text);
