// The files behind the configuration repository: reading one list file and
// replacing it atomically.
//
// A list file is well-formed when it parses as XML and its document element
// carries the list's name. Replacing a file goes through a temporary file in
// the same directory that is synced before it is renamed over the old one;
// the directory is synced after the rename. A crash at any point leaves the
// old or the new content under the final name, never a mixture.
#pragma once

#include <pugixml.hpp>
#include <string>
#include <string_view>

// not_regular: a FIFO, socket, device, directory or symbolic link where the
// list belongs; it is never opened for reading (nothing waits on it).
enum class xrepo_load_result { ok, missing, malformed, not_regular };

// Loads the file at path into doc and checks that its document element is
// named list. On malformed or not_regular, *why (optional) says what is
// wrong. A file that exists but cannot be read counts as malformed.
xrepo_load_result xrepo_file_load(const std::string &path, std::string_view list,
                                  pugi::xml_document &doc, std::string *why = nullptr);

// Writes data to path through a synced temporary file and a rename; creates
// the directory when needed. 0, or -1 with *why set (optional); on failure the
// file at path is untouched and no temporary file is left behind.
int xrepo_file_replace(const std::string &path, std::string_view data, std::string *why = nullptr);
