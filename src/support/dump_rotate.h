// Keeping the previous crash reports: at start-up the current report moves
// to ".1", ".1" to ".2" and so on, the oldest kept copy being overwritten.
#pragma once

// 1 when path opens for reading, else 0.
int file_exists(const char *path);

// Moves the report at path (index 1) or "path.<index - 1>" to
// "path.<index>", first moving a report already there one further while
// index < limit - 1. Called with index 1 and limit 4, it keeps ".1" (newest)
// to ".3"; the old ".3" is overwritten. Numbered names are cut at 209 bytes. A rename
// that fails ends the process through err() with status 33 and
// "inc_dumpfile_ext: Error while renaming files".
void inc_dumpfile_ext(const char *path, int index, int limit);
