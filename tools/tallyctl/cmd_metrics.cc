// tallyctl metrics [--top N] [--out FILE]: the export of metrics.h on
// standard output, or written to FILE in one piece for node exporter's
// textfile collector, which may read the file at any moment.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.h"
#include "metrics.h"
#include "platform/xrepo_file.h"

namespace {

void usage(FILE *to) {
    std::fprintf(to,
                 "usage: tallyctl metrics [--top N] [--out FILE]\n"
                 "  --top N     series per AP, SSID and application family: the N largest and\n"
                 "              one other=\"true\" series with the rest (default %zu)\n"
                 "  --out FILE  write FILE atomically instead of printing\n",
                 TALLYCTL_METRICS_TOP);
}

}  // namespace

int tallyctl_cmd_metrics(const tallyctl_ctx &, const std::vector<std::string> &args) {
    size_t top = TALLYCTL_METRICS_TOP;
    std::string out;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--help" || a == "-h") {
            usage(stdout);
            return 0;
        }
        if ((a == "--top" || a == "--out") && i + 1 < args.size()) {
            const std::string &v = args[++i];
            if (a == "--out") {
                out = v;
                continue;
            }
            char *end = nullptr;
            unsigned long long n = std::strtoull(v.c_str(), &end, 10);
            if (!v.empty() && v[0] != '-' && *end == '\0' && n <= 1000000) {
                top = static_cast<size_t>(n);
                continue;
            }
        }
        std::fprintf(stderr, "tallyctl: metrics: bad argument %s\n", a.c_str());
        usage(stderr);
        return 2;
    }

    std::vector<std::string> errors;
    const std::string text = tallyctl_metrics_text(top, &errors);
    for (const std::string &e : errors) std::fprintf(stderr, "tallyctl: metrics: %s\n", e.c_str());
    if (out.empty()) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    // The repository's durable replace: a temporary dot file beside FILE
    // (never read by the collector, which takes *.prom), synced, renamed
    // over FILE, the directory synced.
    std::string why;
    if (xrepo_file_replace(out, text, &why) != 0) {
        std::fprintf(stderr, "tallyctl: metrics: %s\n", why.c_str());
        return 1;
    }
    return 0;
}
