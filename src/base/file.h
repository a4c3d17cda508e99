// Owners of open files: a stdio stream, a descriptor, a directory stream and
// a command's pipe. Each closes what it holds when it goes, on every return
// path; all are move-only.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

struct tallyd_file_closer {
    void operator()(FILE *f) const { std::fclose(f); }
};
using tallyd_file = std::unique_ptr<FILE, tallyd_file_closer>;

// opendir() / closedir().
struct tallyd_dir_closer {
    void operator()(DIR *d) const { closedir(d); }
};
using tallyd_dir = std::unique_ptr<DIR, tallyd_dir_closer>;

// popen() / pclose(). pclose(p.release()) when the command's exit status
// matters.
struct tallyd_pipe_closer {
    void operator()(FILE *f) const { pclose(f); }
};
using tallyd_pipe = std::unique_ptr<FILE, tallyd_pipe_closer>;

// A file descriptor; empty (-1) when it holds none.
class unique_fd {
   public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    ~unique_fd() { reset(); }
    unique_fd(unique_fd &&o) noexcept : fd_(o.release()) {}
    unique_fd &operator=(unique_fd &&o) noexcept {
        if (this != &o) reset(o.release());
        return *this;
    }
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    // Gives the descriptor up without closing it (now owned elsewhere).
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    // Closes what it holds and takes fd.
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }
    // Closes now and returns close()'s result, where a delayed write error
    // shows; -1 with EBADF when empty.
    int close() {
        if (fd_ < 0) {
            errno = EBADF;
            return -1;
        }
        return ::close(release());
    }

   private:
    int fd_ = -1;
};
