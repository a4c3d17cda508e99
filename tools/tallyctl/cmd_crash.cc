// tallyctl crash: the daemon's crash reports.
//
// The current report is <root>/etc/corvane/dump/tallyd.dump; each start of
// the daemon moves it to ".1", and ".1" to ".3" are kept. The command prints
// the newest report there is (a restarted daemon's last crash is ".1") and
// lists every kept one with the time in its header and the file's own
// modification time. Reads the files only.
#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "support/crashdump.h"

namespace {

constexpr const char *kDaemonName = "tallyd";

struct report_file {
    std::string path;
    std::string crashed_at;  // ctime text from the header; empty without one
    int64_t modified = 0;    // seconds since 1970
};

std::string read_all(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The time of "# tallyd, crashed at <ctime>" (ctime ends that line).
std::string header_time(const std::string &report) {
    const std::string lead = std::string("# ") + kDaemonName + ", crashed at ";
    if (report.rfind(lead, 0) != 0) return {};
    return report.substr(lead.size(), report.find('\n') - lead.size());
}

// The current report and the kept copies that exist, newest first.
std::vector<report_file> kept_reports() {
    char current[PATH_MAX];
    crashdump_path(current, sizeof current, kDaemonName);
    std::vector<report_file> found;
    for (int i = 0; i < CRASHDUMP_ROTATE_LIMIT; ++i) {
        std::string path = i == 0 ? current : std::string(current) + "." + std::to_string(i);
        struct stat st;
        if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        found.push_back({path, header_time(read_all(path)), static_cast<int64_t>(st.st_mtime)});
    }
    return found;
}

}  // namespace

int tallyctl_cmd_crash(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    if (!args.empty()) {
        std::fprintf(stderr, "tallyctl: crash takes no arguments (only --json)\n");
        return 2;
    }
    std::vector<report_file> reports = kept_reports();
    if (reports.empty()) {
        char current[PATH_MAX];
        crashdump_path(current, sizeof current, kDaemonName);
        std::fprintf(stderr, "tallyctl: no crash report (%s and its copies .1 to .3)\n", current);
        return 1;
    }
    const std::string newest = read_all(reports.front().path);
    if (ctx.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const report_file &r : reports) {
            nlohmann::json one = {{"file", r.path}, {"modified", r.modified}};
            one["crashed_at"] =
                r.crashed_at.empty() ? nlohmann::json(nullptr) : nlohmann::json(r.crashed_at);
            list.push_back(std::move(one));
        }
        nlohmann::json out = {{"newest", {{"file", reports.front().path}, {"report", newest}}},
                              {"reports", std::move(list)}};
        // A symbol name in a report is whatever the binary holds: bytes that
        // are not UTF-8 come out replaced.
        std::printf("%s\n",
                    out.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
        return 0;
    }
    std::printf("newest crash report: %s\n%s", reports.front().path.c_str(), newest.c_str());
    std::printf("\nkept crash reports, newest first:\n");
    for (const report_file &r : reports)
        std::printf("  %s  crashed at %s\n", r.path.c_str(),
                    r.crashed_at.empty() ? "(no header)" : r.crashed_at.c_str());
    return 0;
}
