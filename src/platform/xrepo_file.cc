#include "platform/xrepo_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/file.h"
#include "base/regular_file.h"

namespace {

int fail(std::string *why, std::string_view what) {
    if (why) *why = std::string(what) + ": " + std::strerror(errno);
    return -1;
}

int write_all(int fd, std::string_view data) {
    while (!data.empty()) {
        ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return -1;
        data.remove_prefix(static_cast<size_t>(n));
    }
    return 0;
}

// Writes and syncs the temporary file; the caller renames it.
int write_synced(const std::string &tmp, std::string_view data, std::string *why) {
    unique_fd fd(::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (fd.get() < 0) return fail(why, "open " + tmp);
    if (write_all(fd.get(), data) != 0) return fail(why, "write " + tmp);
    if (::fsync(fd.get()) != 0) return fail(why, "fsync " + tmp);
    if (fd.close() != 0) return fail(why, "close " + tmp);
    return 0;
}

// The whole of an open regular file.
int read_all(int fd, std::string *out) {
    char buf[64 * 1024];
    for (;;) {
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) return 0;
        out->append(buf, static_cast<size_t>(n));
    }
}

int sync_dir(const std::string &dir, std::string *why) {
    unique_fd fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0 || ::fsync(fd.get()) != 0) return fail(why, "fsync " + dir);
    return 0;
}

}  // namespace

xrepo_load_result xrepo_file_load(const std::string &path, std::string_view list,
                                  pugi::xml_document &doc, std::string *why) {
    unique_fd fd;
    switch (tallyd_open_regular(AT_FDCWD, path.c_str(), &fd)) {
        case regular_open::ok:
            break;
        case regular_open::missing:
            return xrepo_load_result::missing;
        case regular_open::not_regular:
            if (why) *why = "not a regular file";
            return xrepo_load_result::not_regular;
        case regular_open::failed:
            fail(why, "open " + path);
            return xrepo_load_result::malformed;
    }
    std::string text;
    if (read_all(fd.get(), &text) != 0) {
        fail(why, "read " + path);
        return xrepo_load_result::malformed;
    }
    pugi::xml_parse_result r = doc.load_buffer(text.data(), text.size());
    if (!r) {
        if (why) *why = std::string(r.description()) + " at offset " + std::to_string(r.offset);
        return xrepo_load_result::malformed;
    }
    if (list != doc.document_element().name()) {
        if (why) *why = std::string("document element <") + doc.document_element().name() + ">";
        return xrepo_load_result::malformed;
    }
    return xrepo_load_result::ok;
}

int xrepo_file_replace(const std::string &path, std::string_view data, std::string *why) {
    std::filesystem::path p(path);
    std::string dir = p.parent_path().string();
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    // A dot name in the same directory: the rename cannot cross file systems
    // and a half-written temporary never looks like a list.
    std::string tmp = dir + "/." + p.filename().string() + ".tmp";
    if (write_synced(tmp, data, why) != 0) {
        ::unlink(tmp.c_str());
        return -1;
    }
    if (::rename(tmp.c_str(), path.c_str()) != 0) {
        fail(why, "rename " + tmp);
        ::unlink(tmp.c_str());
        return -1;
    }
    return sync_dir(dir, why);
}
