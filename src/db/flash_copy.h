// Verification of the flash copies moved back into RAM at start-up.
#pragma once

// 1 when /tmp/tallyd/<md5_name> (root-prefixed) verifies with "md5sum -c",
// else 0; the md5 file is removed either way.
int tallyd_md5_verify(const char *md5_name);
