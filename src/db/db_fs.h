// File operations of the database openers, done natively.
//
// Each has the effect of a shell command ("mkdir -p", "rm -rf", "mv N.*") on
// the file system, without a shell. All paths are host paths (already
// root-prefixed). Failures are silent: the openers judge by the database
// they can open afterwards, not by these steps.
#pragma once

#include <string>
#include <string_view>

bool db_fs_exists(const std::string &path);

// mkdir -p path
void db_fs_mkdir_p(const std::string &path);

// rm -rf path
void db_fs_rm_rf(const std::string &path);

// rm path (a plain file)
void db_fs_rm(const std::string &path);

// mv path path.bad: a damaged file kept for a look by hand, replacing an
// older one (removed when it cannot be renamed).
void db_fs_move_aside(const std::string &path);

// rm -rf dir/*: every entry except those whose name starts with a dot, as the
// shell's glob would.
void db_fs_empty_dir(const std::string &dir);

// mv from_dir/base.* to_dir/: each matching entry is renamed, or copied and
// removed when the two directories are on different file systems.
void db_fs_move_copies(const std::string &from_dir, std::string_view base,
                       const std::string &to_dir);

// Device path -> host path of "<dir>/<base>.db".
std::string db_fs_db_path(std::string_view dir, std::string_view base);

// path as one shell word ('...' with embedded quotes escaped), for the
// commands that stay external (md5sum).
std::string db_fs_shell_quote(std::string_view path);
