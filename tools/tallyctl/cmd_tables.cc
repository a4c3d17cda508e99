#include "cmd_tables.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <vector>

#include "base/path.h"
#include "commands.h"
#include "db_view.h"

namespace {

std::string utc(int64_t t) {
    time_t tt = static_cast<time_t>(static_cast<uint32_t>(t));
    tm parts{};
    gmtime_r(&tt, &parts);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &parts);
    return buf;
}

void print_text(const std::vector<tallyctl_db_info> &dbs, std::string *out) {
    char line[512];
    for (const tallyctl_db_info &d : dbs) {
        *out += d.file.host + (d.error.empty() ? "" : "  (" + d.error + ")") + "\n";
        for (const tallyctl_table_info &t : d.tables) {
            std::string newest =
                t.newest ? utc(*t.newest) + " UTC (" + std::to_string(*t.newest) + ")" : "-";
            if (!t.error.empty()) newest = "error: " + t.error;
            std::snprintf(line, sizeof line, "  %-24s %9" PRId64 "  %s\n", t.name.c_str(), t.rows,
                          newest.c_str());
            *out += line;
        }
    }
}

void print_json(const std::vector<tallyctl_db_info> &dbs, std::string *out) {
    nlohmann::json list = nlohmann::json::array();
    for (const tallyctl_db_info &d : dbs) {
        nlohmann::json db = {{"file", d.file.host}};
        if (!d.error.empty()) db["error"] = d.error;
        nlohmann::json tables = nlohmann::json::array();
        for (const tallyctl_table_info &t : d.tables) {
            nlohmann::json tj = {{"name", t.name}, {"rows", t.rows}};
            tj["newest_time"] = t.newest ? nlohmann::json(*t.newest) : nlohmann::json(nullptr);
            if (!t.error.empty()) tj["error"] = t.error;
            tables.push_back(std::move(tj));
        }
        db["tables"] = std::move(tables);
        list.push_back(std::move(db));
    }
    // Bytes that are not UTF-8 (a table name is the database's own text)
    // come out replaced rather than ending the dump.
    *out += nlohmann::json{{"databases", std::move(list)}}.dump(
                -1, ' ', false, nlohmann::json::error_handler_t::replace) +
            "\n";
}

}  // namespace

int tallyctl_print_tables(bool json, std::string *out, std::string *error) {
    std::vector<tallyctl_db_info> dbs;
    for (const tallyctl_db_file &f : tallyctl_db_files()) dbs.push_back(tallyctl_describe_db(f));
    if (json)
        print_json(dbs, out);
    else
        print_text(dbs, out);
    if (dbs.empty()) {
        *error = "no database files under " + tallyd_path(TALLYD_RAM_DIR) + " or " +
                 tallyd_path(TALLYD_FLASH_DIR);
        return 1;
    }
    return 0;
}

int tallyctl_cmd_tables(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    if (!args.empty()) {
        std::fprintf(stderr, "tallyctl: tables takes no arguments (only --json)\n");
        return 2;
    }
    std::string out, error;
    int rc = tallyctl_print_tables(ctx.json, &out, &error);
    std::fputs(out.c_str(), stdout);
    if (rc != 0) std::fprintf(stderr, "tallyctl: %s\n", error.c_str());
    return rc;
}
