// tallyd-sim: plays a whole controller against a running tallyd.
//
// It writes the controller's configuration lists, then, minute by minute of
// daemon time, sends what the AP and station managers send (APs joining and
// leaving, stations joining and roaming, one counters batch a minute) and
// writes the flow reports of the same clients on the same APs and SSIDs into
// the spool. See sim_world.h for the world it plays.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "base/path.h"
#include "client.h"
#include "ipc/msg_layout.h"
#include "sim/arc_writer.h"
#include "sim_world.h"

using events_wire::build_client_stats;
using events_wire::kHeaderSize;

namespace {

constexpr const char *kUsage =
    "usage: tallyd-sim [options]\n"
    "Plays a controller against a running tallyd: APs in AP groups, WLAN groups,\n"
    "clients joining, roaming and leaving, a counters batch and one flow report\n"
    "per AP every minute of daemon time (TALLYD_TIME_SCALE; give the daemon and\n"
    "the simulator the same TALLYD_TIME_ORIGIN so that batches carry the daemon's\n"
    "time).\n"
    "\n"
    "  --root DIR      sandbox root (default: $TALLYD_ROOT, else the device's /)\n"
    "  --aps N         access points, 1..1024 (default 8)\n"
    "  --clients M     clients, 1..1872 (default 60)\n"
    "  --ssids K       SSIDs (WLAN ids 1..K), 1..64 (default 3)\n"
    "  --apgroups G    AP groups, AP group g on WLAN group g (default 2)\n"
    "  --minutes T     minutes of daemon time to play (default 60)\n"
    "  --seed S        random seed; the same seed plays the same run (default 1)\n"
    "  --repo-only     write the configuration lists and stop (before the daemon\n"
    "                  starts, so that its new statistic database is seeded)\n"
    "  --dry-run       play without the daemon, without waiting or writing, and\n"
    "                  print a digest of everything each minute would send\n"
    "  --quiet         print nothing\n"
    "  --help          this text\n";

struct options {
    sim_world_config world;
    uint32_t minutes = 60;
    bool repo_only = false;
    bool dry_run = false;
    bool quiet = false;
};

bool parse_num(const char *text, uint64_t lo, uint64_t hi, uint64_t *out) {
    if (!text || !*text || text[0] == '-') return false;
    char *end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(text, &end, 10);
    if (errno || *end || v < lo || v > hi) return false;
    *out = v;
    return true;
}

// 0 to run, 1 after --help, -1 on a usage error (reported).
int parse(int argc, char **argv, options *o) {
    for (int i = 1; i < argc; ++i) {
        std::string_view a = argv[i];
        const char *v = i + 1 < argc ? argv[i + 1] : nullptr;
        uint64_t n = 0;
        bool ok = true;
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 1;
        } else if (a == "--repo-only" || a == "--dry-run" || a == "--quiet") {
            (a == "--repo-only" ? o->repo_only : a == "--dry-run" ? o->dry_run : o->quiet) = true;
            continue;
        } else if (a == "--root") {
            if ((ok = v != nullptr)) tallyd_root_set(v);
        } else if (a == "--aps") {
            if ((ok = parse_num(v, 1, 1024, &n))) o->world.aps = static_cast<uint32_t>(n);
        } else if (a == "--clients") {
            if ((ok = parse_num(v, 1, 1872, &n))) o->world.clients = static_cast<uint32_t>(n);
        } else if (a == "--ssids") {
            if ((ok = parse_num(v, 1, 64, &n))) o->world.ssids = static_cast<uint32_t>(n);
        } else if (a == "--apgroups") {
            if ((ok = parse_num(v, 1, 256, &n))) o->world.apgroups = static_cast<uint32_t>(n);
        } else if (a == "--minutes") {
            if ((ok = parse_num(v, 1, 100000, &n))) o->minutes = static_cast<uint32_t>(n);
        } else if (a == "--seed") {
            if ((ok = parse_num(v, 0, UINT64_MAX, &n))) o->world.seed = n;
        } else {
            std::fprintf(stderr, "tallyd-sim: unknown option %s\n%s", argv[i], kUsage);
            return -1;
        }
        if (!ok) {
            std::fprintf(stderr, "tallyd-sim: bad or missing value for %s\n", argv[i]);
            return -1;
        }
        ++i;
    }
    return 0;
}

// Writes one configuration list the way the repository saves one: a whole
// new file renamed over the old.
bool write_list(const std::string &name, const std::string &xml) {
    const std::string dir = tallyd_path(TALLYD_XREPO_DIR);
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    const std::string tmp = dir + "/." + name + ".sim", file = dir + "/" + name + ".xml";
    std::ofstream(tmp) << xml;
    return std::rename(tmp.c_str(), file.c_str()) == 0;
}

// The dictionary lists the daemon appends to, empty, where there are none.
bool write_dictionaries() {
    for (const char *name :
         {"avpap-list", "avpssid-list", "avpapgroup-list", "avpdvcinfo-list", "sta-rename-list"}) {
        if (std::filesystem::exists(tallyd_path(TALLYD_XREPO_DIR) + "/" + name + ".xml")) continue;
        if (!write_list(name, std::string("<?xml version=\"1.0\"?>\n<") + name + " />\n"))
            return false;
    }
    return true;
}

// FNV-1a over everything a minute sends and writes.
uint64_t digest(uint64_t h, std::span<const uint8_t> bytes) {
    for (uint8_t b : bytes) h = (h ^ b) * 1099511628211ULL;
    return h;
}

void sleep_until(uint32_t due) {
    const uint32_t now = tallyd_now();
    if (now >= due) return;
    tallyd_timeval real = tallyd_real_wait({static_cast<int32_t>(due - now), 0});
    timespec ts{real.sec, static_cast<long>(real.usec) * 1000};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

}  // namespace

int main(int argc, char **argv) {
    options o;
    if (int rc = parse(argc, argv, &o); rc != 0) return rc > 0 ? 0 : 2;
    auto world = std::make_unique<sim_world>(o.world);

    if (!o.dry_run) {
        for (const auto &[name, xml] : world->repository())
            if (!write_list(name, xml)) {
                std::fprintf(stderr, "tallyd-sim: cannot write the list %s\n", name.c_str());
                return 1;
            }
        if (!write_dictionaries()) return 1;
        if (!o.quiet) std::printf("tallyd-sim: repository written\n");
        if (o.repo_only) return 0;
    }

    tallyctl_conn ctrl, stat;
    std::string error;
    if (!o.dry_run && (!ctrl.open(tallyd_socket_kind::control, &error) ||
                       !stat.open(tallyd_socket_kind::stat, &error))) {
        std::fprintf(stderr, "tallyd-sim: %s\n", error.c_str());
        return 1;
    }
    const std::string spool = tallyd_path(TALLYD_SPOOL_DIR);
    std::error_code ec;
    if (!o.dry_run) std::filesystem::create_directories(spool, ec);

    // Puts the header on a built message, adds it to the digest and sends it
    // (not in a dry run).
    auto send = [&](tallyctl_conn &conn, uint32_t id, std::vector<uint8_t> &msg, uint64_t *h) {
        tallyd_msg_header_put(msg, 0, id, static_cast<uint32_t>(msg.size() - kHeaderSize));
        *h = digest(*h, msg);
        return o.dry_run || conn.send(msg, &error);
    };
    // A dry run stamps its batches from a fixed start so that its digest
    // depends on the seed alone.
    const uint32_t start = o.dry_run ? 1700000000 : tallyd_now();
    sim_minute out;
    for (uint32_t m = 0; m <= o.minutes; ++m) {
        const uint32_t t = start + 60 * m;
        if (!o.dry_run) sleep_until(t);
        uint64_t h = 14695981039346656037ULL;
        bool ok = true;
        // The counters of the minute just past come first.
        if (m > 0) {
            std::vector<uint8_t> batch =
                build_client_stats(o.dry_run ? t : tallyd_now(), out.counters);
            ok = send(stat, TALLYD_MSG_CLIENT_STATS, batch, &h);
        }
        if (m < o.minutes) {
            world->play(m, &out);
            for (const auto &[name, xml] : out.lists)
                ok = (o.dry_run || write_list(name, xml)) && ok;
            for (sim_message &msg : out.control) ok = send(ctrl, msg.id, msg.bytes, &h) && ok;
            for (const auto &[name, bytes] : out.flow_files) {
                h = digest(digest(h, {reinterpret_cast<const uint8_t *>(name.data()), name.size()}),
                           bytes);
                ok = (o.dry_run || arc_write_file(spool, name, bytes) == 0) && ok;
            }
        }
        if (!ok) {
            std::fprintf(stderr, "tallyd-sim: minute %u: cannot send or write: %s\n", m,
                         error.c_str());
            return 1;
        }
        if (m == o.minutes) break;
        if (!o.quiet)
            std::printf(
                "tallyd-sim: minute %u: %u APs up, %u stations, %zu events, %zu flow "
                "files, digest %016llx\n",
                m, out.aps_up, out.stations, out.control.size(), out.flow_files.size(),
                static_cast<unsigned long long>(h));
        std::fflush(stdout);
    }
    return 0;
}
