// Owning stdio streams: the stream is closed when its handle goes, on every
// return path.
#pragma once

#include <cstdio>
#include <memory>

struct tallyd_file_closer {
    void operator()(FILE *f) const { std::fclose(f); }
};

using tallyd_file = std::unique_ptr<FILE, tallyd_file_closer>;
