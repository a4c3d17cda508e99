// One flow file in the spool, taken in by the flow task: the protobuf
// decoder, the dictionary mapping of its AP MACs and SSIDs, and the rows it
// stores. Besides the sanitizers the target checks that the spool is empty
// after the run, whatever the file held.
#include <filesystem>
#include <string>

#include "base/clock.h"
#include "base/path.h"
#include "flow/ingest.h"
#include "fuzz_daemon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_daemon_start();
    fuzz_daemon_tick();
    const std::string spool = tallyd_path(TALLYD_SPOOL_DIR);
    // Named as the collector names an AP's report.
    if (!fuzz_write_file(spool + "/00:1A:2B:3C:4D:5E-1", data, size)) fuzz_fail("cannot write");
    tallyd_handle_flow(tallyd_now());
    if (!std::filesystem::is_empty(spool)) fuzz_fail("the flow task left a file in the spool");
    return 0;
}
