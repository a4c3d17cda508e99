// tallyctl tables: every table of every database file of the daemon, with
// its row count and its newest `time`.
//
//   tables [--json]
//
// Reads the files under <root>/tmp/tallyd and <root>/etc/corvane-images/tallyd
// directly, each opened read-only, so it works while the daemon runs (a
// database the daemon is writing is waited for briefly, then reported as
// busy) and never changes a file.
#pragma once

#include <string>
#include <vector>

struct tallyctl_ctx;

// Appends the report to *out: text, one block per database file, or one JSON
// object ({"databases":[{"file":...,"tables":[{"name":...,"rows":N,
// "newest_time":T|null}]}]}) when json is set. A table without a `time`
// column has no newest time; a file that cannot be read is listed with its
// error. Returns 0, or 1 when no database file was found (*error says where
// it looked).
int tallyctl_print_tables(bool json, std::string *out, std::string *error);

// The tallyctl command: no arguments; prints the report (JSON with --json) on
// standard output. Exit status 0, 1 when no database file was found, 2 for
// stray arguments.
int tallyctl_cmd_tables(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
