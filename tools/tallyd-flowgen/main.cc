// tallyd-flowgen: writes application-visibility flow reports into the spool
// directory the way the controller's flow collector does, one file per AP
// per round, for the demo, end-to-end tests and soak runs.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "base/path.h"
#include "sim/arc_writer.h"
#include "sim/flow_sim.h"

namespace {

constexpr const char *kUsage =
    "usage: tallyd-flowgen [options]\n"
    "Writes flow report files (one per AP per round) into the spool directory\n"
    "<root>/etc/corvane-images/firmwares/avpd, named <ap mac>-<round>.\n"
    "\n"
    "  --root DIR      sandbox root (default: $TALLYD_ROOT, else the device's /)\n"
    "  --aps N         number of APs (default 20)\n"
    "  --clients M     number of clients, spread over the APs (default 200)\n"
    "  --ssids K       number of SSIDs (default 4)\n"
    "  --entries E     flow entries per file, 1..50 (default 50)\n"
    "  --seed S        random seed; the same seed writes the same files (default 1)\n"
    "  --every T       write a round every T seconds of daemon time (honours\n"
    "                  TALLYD_TIME_SCALE); without it one round is written\n"
    "  --rounds R      with --every: stop after R rounds (default: run until killed)\n"
    "  --round N       number of the first round, used in the file names (default 1);\n"
    "                  give later one-shot runs higher numbers so that files the\n"
    "                  daemon has not read yet are not replaced\n"
    "  --bad KIND      write one malformed file for the first AP instead:\n"
    "                  too-many (51 entries), missing-field (an entry without its\n"
    "                  port), oversize (an application name of 64 characters),\n"
    "                  truncated (the file ends inside an entry), no-colon (a valid\n"
    "                  file whose name has no colon); named <ap mac>-<N + 900 + kind>\n"
    "  --quiet         print nothing\n"
    "  --help          this text\n";

struct options {
    flow_sim_config sim;
    uint32_t every = 0;
    uint32_t rounds = 0;  // 0: forever (with --every)
    uint32_t first_round = 1;
    arc_bad bad = arc_bad::none;
    bool quiet = false;
};

bool parse_u64(const char *text, uint64_t max, uint64_t *out) {
    if (!text || !*text) return false;
    char *end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(text, &end, 10);
    if (errno || *end || v > max || text[0] == '-') return false;
    *out = v;
    return true;
}

bool parse_u32(const char *text, uint32_t min, uint32_t max, uint32_t *out) {
    uint64_t v = 0;
    if (!parse_u64(text, max, &v) || v < min) return false;
    *out = static_cast<uint32_t>(v);
    return true;
}

// 0 to run, 1 after --help, -1 on a usage error (reported).
int parse(int argc, char **argv, options *o) {
    for (int i = 1; i < argc; ++i) {
        std::string_view a = argv[i];
        const char *v = i + 1 < argc ? argv[i + 1] : nullptr;
        bool ok = true;
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 1;
        } else if (a == "--quiet") {
            o->quiet = true;
            continue;
        } else if (a == "--root") {
            ok = v != nullptr;
            if (ok) tallyd_root_set(v);
        } else if (a == "--aps") {
            ok = parse_u32(v, 1, 1u << 24, &o->sim.aps);
        } else if (a == "--clients") {
            ok = parse_u32(v, 1, UINT32_MAX, &o->sim.clients);
        } else if (a == "--ssids") {
            ok = parse_u32(v, 1, 4096, &o->sim.ssids);
        } else if (a == "--entries") {
            ok = parse_u32(v, 1, 50, &o->sim.entries);
        } else if (a == "--seed") {
            ok = parse_u64(v, UINT64_MAX, &o->sim.seed);
        } else if (a == "--every") {
            ok = parse_u32(v, 1, 86400, &o->every);
        } else if (a == "--rounds") {
            ok = parse_u32(v, 1, UINT32_MAX, &o->rounds);
        } else if (a == "--round") {
            ok = parse_u32(v, 0, UINT32_MAX / 2, &o->first_round);
        } else if (a == "--bad") {
            ok = v && arc_bad_parse(v, &o->bad);
        } else {
            std::fprintf(stderr, "tallyd-flowgen: unknown option %s\n%s", argv[i], kUsage);
            return -1;
        }
        if (!ok) {
            std::fprintf(stderr, "tallyd-flowgen: bad or missing value for %s\n", argv[i]);
            return -1;
        }
        ++i;
    }
    return 0;
}

int write_report(flow_sim &sim, ArcMessage *msg, const std::string &spool, uint32_t ap,
                 uint32_t round, arc_bad bad) {
    sim.report(ap, round, msg);
    std::vector<uint8_t> bytes = arc_encode(*msg, bad);
    std::string name = arc_spool_name(sim.ap_mac(ap), round, bad);
    if (bytes.empty() || arc_write_file(spool, name, bytes) != 0) {
        std::fprintf(stderr, "tallyd-flowgen: cannot write %s/%s\n", spool.c_str(), name.c_str());
        return -1;
    }
    return 0;
}

// Sleeps `secs` seconds of daemon time.
void wait_daemon_seconds(uint32_t secs) {
    tallyd_timeval real = tallyd_real_wait({static_cast<int32_t>(secs), 0});
    timespec ts{real.sec, static_cast<long>(real.usec) * 1000};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

}  // namespace

int main(int argc, char **argv) {
    options o;
    int rc = parse(argc, argv, &o);
    if (rc != 0) return rc > 0 ? 0 : 2;

    std::string spool = tallyd_path(TALLYD_SPOOL_DIR);
    std::error_code ec;
    std::filesystem::create_directories(spool, ec);

    // 50 entries of fixed storage: too large for the stack of a small tool.
    auto msg = std::make_unique<ArcMessage>();
    if (o.bad == arc_bad::too_many) o.sim.entries = 50;
    flow_sim sim(o.sim);

    if (o.bad != arc_bad::none) {
        // Each kind has a number of its own: several bad files can wait side by side.
        uint32_t n = o.first_round + 900 + static_cast<uint32_t>(o.bad);
        rc = write_report(sim, msg.get(), spool, 0, n, o.bad);
        if (rc == 0 && !o.quiet) std::printf("tallyd-flowgen: wrote 1 malformed file\n");
        return rc == 0 ? 0 : 1;
    }

    uint32_t rounds = o.every ? o.rounds : 1;
    for (uint32_t i = 0; rounds == 0 || i < rounds; ++i) {
        uint32_t round = o.first_round + i;
        if (i > 0) wait_daemon_seconds(o.every);
        for (uint32_t ap = 0; ap < sim.config().aps; ++ap) {
            if (write_report(sim, msg.get(), spool, ap, round, arc_bad::none) != 0) return 1;
        }
        if (!o.quiet)
            std::printf("tallyd-flowgen: round %u: %u files of %u entries\n", round,
                        sim.config().aps, sim.config().entries);
        std::fflush(stdout);
    }
    return 0;
}
