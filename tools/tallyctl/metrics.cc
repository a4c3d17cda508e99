#include "metrics.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/path.h"
#include "base/sys_info.h"
#include "core/instance.h"
#include "core/sizing.h"
#include "db/db_files.h"
#include "db_view.h"
#include "entity/dict.h"
#include "om_text.h"

namespace {

// Bytes or clients per AP or SSID id. The daemon's ids are small counters,
// summed in a flat array (the hour table of a large controller has a million
// rows); any other id a damaged table may hold goes to a map. A zero sum
// counts as no entry.
class id_sums {
   public:
    void add(int64_t id, uint64_t value) {
        if (id < 0 || id >= kFlatIds) {
            other_[id] += value;
            return;
        }
        if (static_cast<size_t>(id) >= flat_.size()) flat_.resize(static_cast<size_t>(id) + 1);
        flat_[static_cast<size_t>(id)] += value;
    }
    template <typename F>
    void each(F f) const {
        for (size_t id = 0; id < flat_.size(); ++id)
            if (flat_[id] != 0) f(static_cast<int64_t>(id), flat_[id]);
        for (const auto &[id, value] : other_)
            if (value != 0) f(id, value);
    }

   private:
    static constexpr int64_t kFlatIds = 65536;
    std::vector<uint64_t> flat_;
    std::unordered_map<int64_t, uint64_t> other_;
};

// Bytes per application name.
using text_sums = std::unordered_map<std::string, uint64_t>;

// A dictionary as its repository list holds it.
struct dictionary {
    std::unordered_map<int64_t, std::string> by_id;  // the first entry of an id wins
    std::optional<size_t> entries;                   // absent: the list could not be read
};

std::string column_text(sqlite3_stmt *s, int col) {
    auto p = reinterpret_cast<const char *>(sqlite3_column_text(s, col));
    return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(s, col))) : std::string();
}

// When the process pid started, in seconds since 1970: its start in clock
// ticks after boot (/proc/<pid>/stat, field 22) plus the boot time.
std::optional<int64_t> process_start_time(int32_t pid) {
    std::ifstream stat_file("/proc/" + std::to_string(pid) + "/stat");
    std::string stat((std::istreambuf_iterator<char>(stat_file)), std::istreambuf_iterator<char>());
    // The command name (field 2) may hold blanks and parentheses: count
    // fields from the last ')'.
    size_t close = stat.rfind(')');
    if (close == std::string::npos) return std::nullopt;
    std::istringstream fields(stat.substr(close + 1));
    std::string field;
    for (int n = 3; n <= 22; ++n)
        if (!(fields >> field)) return std::nullopt;
    const int64_t start_ticks = std::strtoll(field.c_str(), nullptr, 10);

    std::ifstream proc_stat("/proc/stat");
    std::string key;
    int64_t boot = -1;
    while (proc_stat >> key) {
        if (key == "btime") {
            proc_stat >> boot;
            break;
        }
    }
    const int64_t ticks = sysconf(_SC_CLK_TCK);
    if (boot < 0 || ticks <= 0) return std::nullopt;
    return boot + start_ticks / ticks;
}

class collector {
   public:
    collector(size_t top, std::vector<std::string> *errors) : top_(top), errors_(errors) {}

    std::string run() {
        health();
        platform();
        files_and_tables();
        dictionaries();
        traffic();
        statistic_clients();
        w_.family("tallyd_metrics_read_errors", "gauge", "",
                  "Reads of this export that failed (database busy, damaged or missing, list "
                  "unreadable); what they would have given is left out");
        w_.sample({}, static_cast<uint64_t>(errors_->size()));
        return w_.finish();
    }

   private:
    void fail(std::string what) { errors_->push_back(std::move(what)); }

    void health() {
        const int32_t pid = tallyd_read_pid_file(tallyd_path(TALLYD_PID_FILE).c_str());
        const bool up = pid > 0 && tallyd_pid_is_tallyd(pid);
        w_.family("tallyd_up", "gauge", "", "1 when the pid file names a running tallyd, else 0");
        w_.sample({}, uint64_t{up});
        std::optional<int64_t> start = up ? process_start_time(pid) : std::nullopt;
        w_.family("tallyd_start_time_seconds", "gauge", "seconds",
                  "When the running tallyd started, in seconds since 1970");
        if (start) w_.sample({}, *start);
    }

    // The limits the daemon gives itself on this platform.
    void platform() {
        tallyd_size_for_platform(&sizing_);
        w_.family("tallyd_platform_class", "gauge", "",
                  "Platform class the daemon sizes itself by (0 an unknown platform, 1 to 3 the "
                  "known ones)");
        w_.sample({}, int64_t{sizing_.platform_class});
    }

    void files_and_tables() {
        const std::vector<tallyctl_db_file> files = tallyctl_db_files();
        w_.family("tallyd_db_file_size_bytes", "gauge", "bytes", "Size of a database file");
        for (const tallyctl_db_file &f : files) {
            struct stat st {};
            if (::stat(f.host.c_str(), &st) == 0)
                w_.sample(std::vector<om_label>{{"file", f.device}},
                          static_cast<uint64_t>(st.st_size));
        }
        w_.family("tallyd_db_size_limit_bytes", "gauge", "bytes",
                  "Size limit of a database file on this platform; the daemon trims the oldest "
                  "rows above it");
        w_.sample(std::vector<om_label>{{"file", TALLYD_DB_MAIN}}, int64_t{sizing_.db_max_size});
        w_.sample(std::vector<om_label>{{"file", TALLYD_DB_FLASH}},
                  int64_t{sizing_.db_flash_max_size});

        std::vector<tallyctl_db_info> dbs;
        for (const tallyctl_db_file &f : files) {
            dbs.push_back(tallyctl_describe_db(f));
            if (!dbs.back().error.empty()) fail(f.device + ": " + dbs.back().error);
            for (const tallyctl_table_info &t : dbs.back().tables)
                if (!t.error.empty()) fail(f.device + " " + t.name + ": " + t.error);
        }
        w_.family("tallyd_table_rows", "gauge", "", "Rows of a table");
        for (const tallyctl_db_info &d : dbs)
            for (const tallyctl_table_info &t : d.tables)
                if (t.error.empty())
                    w_.sample(std::vector<om_label>{{"file", d.file.device}, {"table", t.name}},
                              t.rows);
        w_.family("tallyd_table_newest_time_seconds", "gauge", "seconds",
                  "Newest time stamp of a table's rows, in seconds since 1970");
        for (const tallyctl_db_info &d : dbs)
            for (const tallyctl_table_info &t : d.tables)
                if (t.error.empty() && t.newest)
                    w_.sample(std::vector<om_label>{{"file", d.file.device}, {"table", t.name}},
                              *t.newest);
    }

    void dictionaries() {
        const std::pair<const char *, int32_t> kinds[] = {{"ap", sizing_.ap_max},
                                                          {"ssid", sizing_.ssid_max},
                                                          {"apgroup", sizing_.apgroup_max},
                                                          {"dvcinfo", sizing_.dvcinfo_max}};
        std::map<std::string, dictionary> read;
        for (const auto &[name, size] : kinds) {
            std::vector<tallyd_dict_stored> stored;
            dictionary &d = read[name];
            if (tallyd_dict_read_stored(name, &stored) != 0) {
                fail(std::string("dictionary ") + name + ": list absent or unreadable");
                continue;
            }
            size_t entries = 0;
            for (const tallyd_dict_stored &e : stored) {
                if (e.id == 0) continue;  // a reload skips it too
                ++entries;
                d.by_id.emplace(e.id, e.key);
            }
            d.entries = entries;
        }
        w_.family("tallyd_dictionary_entries", "gauge", "",
                  "Entries of an id dictionary as its repository list holds them");
        for (const auto &[name, size] : kinds)
            if (read[name].entries)
                w_.sample(std::vector<om_label>{{"dictionary", name}},
                          static_cast<uint64_t>(*read[name].entries));
        w_.family("tallyd_dictionary_table_size", "gauge", "",
                  "Hash table size the platform gives a dictionary; entries beyond it share "
                  "chains");
        for (const auto &[name, size] : kinds)
            w_.sample(std::vector<om_label>{{"dictionary", name}}, int64_t{size});
        ap_ = std::move(read["ap"]);
        ssid_ = std::move(read["ssid"]);
        apgroup_ = std::move(read["apgroup"]);
    }

    // The dictionary's text for id; "#<id>" for an id it does not hold.
    static std::string name_of(const dictionary &d, int64_t id) {
        auto it = d.by_id.find(id);
        if (it != d.by_id.end()) return it->second;
        std::string text = "#";
        return text += std::to_string(id);
    }

    // Runs sql on conn, calling row per result row; a failure is counted.
    template <typename F>
    void scan(const sql_conn &conn, const char *file, const std::string &sql, F row) {
        std::string error = tallyctl_query(conn.get(), sql, row);
        if (!error.empty()) fail(std::string(file) + ": " + sql + ": " + error);
    }

    std::vector<om_series> ap_series(const id_sums &sums) {
        std::vector<om_series> out;
        sums.each([&](int64_t id, uint64_t value) {
            std::vector<om_label> labels{{"ap", name_of(ap_, id)}, {"apgroup", ""}};
            auto mac = ap_.by_id.find(id);
            auto group = mac == ap_.by_id.end() ? ap_groups_.end() : ap_groups_.find(mac->second);
            if (group != ap_groups_.end()) labels[1].value = name_of(apgroup_, group->second);
            out.push_back({std::move(labels), value});
        });
        return out;
    }

    std::vector<om_series> ssid_series(const id_sums &sums) {
        std::vector<om_series> out;
        sums.each([&](int64_t id, uint64_t value) {
            out.push_back({{{"ssid", name_of(ssid_, id)}}, value});
        });
        return out;
    }

    static std::vector<om_series> app_series(const text_sums &sums) {
        std::vector<om_series> out;
        for (const auto &[app, value] : sums)
            if (value != 0) out.push_back({{{"app", app}}, value});
        return out;
    }

    void capped(const char *name, const char *unit, const char *help,
                std::vector<om_series> series) {
        w_.family(name, "gauge", unit, help);
        om_write_top(w_, std::move(series), top_);
    }

    // Bytes per AP, SSID and application over the hour tables (the last
    // hour of five-minute buckets) and the day tables (the day rollups of the
    // last 24 hours), and clients per AP and SSID over the hour.
    void traffic() {
        sql_conn db;
        if (!tallyctl_db_open_ro(tallyd_path(TALLYD_DB_MAIN), db)) {
            fail(std::string(TALLYD_DB_MAIN) + ": cannot open");
            return;
        }
        scan(db, TALLYD_DB_MAIN, "SELECT ap_mac, group_id FROM avp_ap",
             [&](sqlite3_stmt *s) { ap_groups_[column_text(s, 0)] = sqlite3_column_int64(s, 1); });

        id_sums ap_hour, ssid_hour, ap_day, ssid_day, ap_clients, ssid_clients;
        text_sums app_hour, app_day;
        scan(db, TALLYD_DB_MAIN, "SELECT ap_mac, ssid, uplink, downlink FROM avp_ap_ssid_hour",
             [&](sqlite3_stmt *s) {
                 uint64_t bytes = tallyctl_column_u64(s, 2) + tallyctl_column_u64(s, 3);
                 ap_hour.add(sqlite3_column_int64(s, 0), bytes);
                 ssid_hour.add(sqlite3_column_int64(s, 1), bytes);
             });
        scan(db, TALLYD_DB_MAIN, "SELECT app, uplink, downlink FROM avp_all_group_hour",
             [&](sqlite3_stmt *s) {
                 app_hour[column_text(s, 0)] +=
                     tallyctl_column_u64(s, 1) + tallyctl_column_u64(s, 2);
             });
        scan(db, TALLYD_DB_MAIN, "SELECT app, ssid, uplink, downlink FROM avp_ssid_day",
             [&](sqlite3_stmt *s) {
                 uint64_t bytes = tallyctl_column_u64(s, 2) + tallyctl_column_u64(s, 3);
                 app_day[column_text(s, 0)] += bytes;
                 ssid_day.add(sqlite3_column_int64(s, 1), bytes);
             });
        scan(db, TALLYD_DB_MAIN, "SELECT ap_mac, total FROM avp_top_client_day",
             [&](sqlite3_stmt *s) {
                 ap_day.add(sqlite3_column_int64(s, 0), tallyctl_column_u64(s, 1));
             });
        for (auto [column, sums] :
             {std::pair{"ap_mac", &ap_clients}, std::pair{"ssid", &ssid_clients}})
            scan(db, TALLYD_DB_MAIN,
                 std::string("SELECT ") + column +
                     ", COUNT(DISTINCT client_mac) FROM avp_top_client_hour GROUP BY 1",
                 [&](sqlite3_stmt *s) {
                     sums->add(sqlite3_column_int64(s, 0), tallyctl_column_u64(s, 1));
                 });

        capped("tallyd_ap_hour_bytes", "bytes",
               "Bytes through an AP in the last hour of five-minute rollups (up and down)",
               ap_series(ap_hour));
        capped("tallyd_ap_day_bytes", "bytes",
               "Bytes of an AP's top clients in the day rollups of the last 24 hours",
               ap_series(ap_day));
        capped("tallyd_ssid_hour_bytes", "bytes",
               "Bytes on an SSID in the last hour of five-minute rollups (up and down)",
               ssid_series(ssid_hour));
        capped("tallyd_ssid_day_bytes", "bytes",
               "Bytes on an SSID in the day rollups of the last 24 hours (up and down)",
               ssid_series(ssid_day));
        capped("tallyd_app_hour_bytes", "bytes",
               "Bytes of an application in the last hour of five-minute rollups (up and down)",
               app_series(app_hour));
        capped("tallyd_app_day_bytes", "bytes",
               "Bytes of an application in the day rollups of the last 24 hours (up and down)",
               app_series(app_day));
        capped("tallyd_ap_clients", "", "Clients with traffic through an AP in the last hour",
               ap_series(ap_clients));
        capped("tallyd_ssid_clients", "", "Clients with traffic on an SSID in the last hour",
               ssid_series(ssid_clients));
    }

    void statistic_clients() {
        sql_conn db;
        if (!tallyctl_db_open_ro(tallyd_path(TALLYD_DB_STATISTIC), db)) {
            fail(std::string(TALLYD_DB_STATISTIC) + ": cannot open");
            return;
        }
        w_.family("tallyd_clients", "gauge", "",
                  "Clients in the client directory (stations reported in the last hours)");
        scan(db, TALLYD_DB_STATISTIC, "SELECT COUNT(DISTINCT client_mac) FROM statis_client_info_h",
             [&](sqlite3_stmt *s) {
                 w_.sample({}, static_cast<int64_t>(sqlite3_column_int64(s, 0)));
             });
    }

    size_t top_;
    std::vector<std::string> *errors_;
    om_writer w_;
    tallyd_sys_info_t sizing_{};
    dictionary ap_, ssid_, apgroup_;
    std::unordered_map<std::string, int64_t> ap_groups_;  // AP MAC text -> AP group id
};

}  // namespace

std::string tallyctl_metrics_text(size_t top, std::vector<std::string> *errors) {
    return collector(top, errors).run();
}
