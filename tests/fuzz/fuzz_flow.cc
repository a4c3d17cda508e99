// One flow file in the spool, taken in by the flow task: the protobuf
// decoder, the dictionary mapping of its AP MACs and SSIDs, and the rows it
// stores. Besides the sanitizers the target checks that the spool is empty
// after the run, whatever the file held.
//
// The spool is checked through a directory handle kept open from input to
// input and rewound each time: opening the directory afresh for every input
// (ten system calls and a 32 KB buffer) cost about a tenth of what the flow
// task itself costs.
#include <dirent.h>

#include <cstring>
#include <string>

#include "base/clock.h"
#include "base/path.h"
#include "flow/ingest.h"
#include "fuzz_daemon.h"

namespace {

std::string spool;
std::string flow_file;
DIR *spool_dir;

void open_spool() {
    if (spool_dir) closedir(spool_dir);
    spool = tallyd_path(TALLYD_SPOOL_DIR);
    // Named as the collector names an AP's report.
    flow_file = spool + "/00:1A:2B:3C:4D:5E-1";
    spool_dir = opendir(spool.c_str());
    if (!spool_dir) fuzz_fail("cannot open the spool");
}

bool spool_is_empty() {
    rewinddir(spool_dir);
    while (const dirent *e = readdir(spool_dir))
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_daemon_start();
    if (fuzz_daemon_tick() || !spool_dir) open_spool();
    if (!fuzz_write_file(flow_file, data, size)) fuzz_fail("cannot write");
    tallyd_handle_flow(tallyd_now());
    if (!spool_is_empty()) fuzz_fail("the flow task left a file in the spool");
    return 0;
}
