// Owning stdio streams and descriptors: each is closed when its owner goes,
// on every return path.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <memory>

struct tallyd_file_closer {
    void operator()(FILE *f) const { std::fclose(f); }
};

using tallyd_file = std::unique_ptr<FILE, tallyd_file_closer>;

// A descriptor (negative: none) closed on destruction.
class tallyd_fd {
   public:
    explicit tallyd_fd(int fd) : fd_(fd) {}
    ~tallyd_fd() {
        if (fd_ >= 0) ::close(fd_);
    }
    tallyd_fd(const tallyd_fd &) = delete;
    tallyd_fd &operator=(const tallyd_fd &) = delete;
    int get() const { return fd_; }
    // Closes now and reports the result (a delayed write error shows here).
    int close() {
        int rc = ::close(fd_);
        fd_ = -1;
        return rc;
    }

   private:
    int fd_;
};
