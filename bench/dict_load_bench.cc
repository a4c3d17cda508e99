// Loading a large AP dictionary: a 400,000-entry avpap-list (some 16 MB) on
// the small platform, whose 56 buckets make chains of about 7,000 entries.
// The daemon's reload against a bare parse of the same file that reads every
// entry's attributes, then the real daemon from its start until its probe is
// answered (target: 1.5 s), with the CPU time it used for that.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <pugixml.hpp>
#include <sstream>
#include <string>

#include "base/path.h"
#include "base/sys_info.h"
#include "entity/dict.h"
#include "support/bench_util.h"

namespace {

constexpr uint32_t kAps = 400000;

std::string mac(uint32_t i) {
    char b[18];
    std::snprintf(b, sizeof b, "02:00:%02x:%02x:%02x:%02x", (i >> 24) & 0xff, (i >> 16) & 0xff,
                  (i >> 8) & 0xff, i & 0xff);
    return b;
}

// The parser's share: the file parsed and every entry's two attributes read.
double bare_load(const std::string &file, int64_t *entries) {
    bench_timer t;
    pugi::xml_document doc;
    doc.load_file(file.c_str());
    *entries = 0;
    for (pugi::xml_node n : doc.document_element().children())
        *entries += n.attribute("id").as_int() > 0 && n.attribute("ap").value()[0];
    return t.seconds();
}

// CPU seconds (user + system) the process has used so far: on a busy machine
// the wall time of a start says more about the other processes.
double cpu_seconds(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string f;
    double ticks = 0;
    for (int i = 3; i <= 15 && fields >> f; ++i)
        if (i >= 14) ticks += std::stod(f);  // utime, stime
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace

int main() {
    bench_root root;
    const std::string dir = tallyd_path(TALLYD_XREPO_DIR);
    std::filesystem::create_directories(dir);
    const std::string file = dir + "/avpap-list.xml";
    if (FILE *f = std::fopen(file.c_str(), "w")) {
        std::fprintf(f, "<?xml version=\"1.0\"?>\n<avpap-list>\n");
        for (uint32_t i = 1; i <= kAps; ++i)
            std::fprintf(f, "  <avpap id=\"%u\" ap=\"%s\" />\n", i, mac(i).c_str());
        std::fprintf(f, "</avpap-list>\n");
        std::fclose(f);
    }

    int64_t bare_entries = 0;
    const double bare_s = bare_load(file, &bare_entries);

    tallyd_sys_info.ap_max = 56;  // no platform file: the small platform
    bench_peak_rss_reset();
    bench_timer t;
    tallyd_update_avp_ap_hash(&tallyd_sys_info);
    const double load_s = t.seconds();
    const int64_t rss = bench_peak_rss_kib();
    if (tallyd_sys_info.ap_count != static_cast<int32_t>(kAps) || bare_entries != kAps ||
        tallyd_avp_ap_lookup_name(mac(kAps).c_str()) != static_cast<int32_t>(kAps)) {
        std::fprintf(stderr, "dict_load_bench: the list did not load whole\n");
        return 1;
    }
    int rc = bench_print({"AP dictionary load, 400k entries", kAps, load_s, bare_s, rss, 4.0, 0});

    t.restart();
    const pid_t daemon = bench_start_daemon(root.path());
    const double start_s = t.seconds();
    if (daemon < 0) {
        std::fprintf(stderr, "dict_load_bench: the daemon did not answer its probe\n");
        return 1;
    }
    const double cpu_s = cpu_seconds(daemon);
    kill(daemon, SIGTERM);
    waitpid(daemon, nullptr, 0);
    rc |= bench_print({"daemon start to probe, 400k APs", kAps, start_s, bare_s, 0, 0, 1.5});
    std::printf("  the daemon's CPU time until the probe was answered: %.2fs\n", cpu_s);
    return rc;
}
