#include "flow/ingest.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "base/clock.h"
#include "base/file.h"
#include "base/log.h"
#include "base/path.h"
#include "base/regular_file.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "entity/dict.h"
#include "flow/ingest_sql.h"
#include "flow/ingest_stream.h"
#include "flow/tasks.h"

namespace {

constexpr int32_t kFlowPeriod = tallyd_task_period(tallyd_task::flow);
constexpr uint32_t kBudgetSeconds = 12;

// The decoded message of the file being read: fixed storage of the task
// (some 35 KB for 50 entries), reused for every file.
ArcMessage g_message;
// The read buffer of the file being read: a flow file of 50 entries is some
// 6 KB, so one read() takes it whole, and no buffer is allocated per file.
pb_byte_t g_file_buffer[64 * 1024];

// Spool files are named "<ap mac>-<n>" after the reporting AP; anything
// without both a dash and a colon is not a flow file.
bool is_flow_file(const char *name) {
    return std::strchr(name, '-') && std::strchr(name, ':');
}

// Quotes in app and category are doubled in place, bounded by their 64-byte
// storage, before they go into the statement.
void escape_text(char (&text)[64], const char *log_fmt) {
    if (!std::strchr(text, '\'')) return;
    tallyd_sql_escape(text, sizeof text);
    tallyd_log(LOG_DEBUG, log_fmt, text);
}

// One flow entry: map its SSID and AP, check and escape its texts, insert.
// 0 to go on with the next entry, -1 when the insert failed and the rest of
// the file must be dropped.
int store_record(flow_sql &sql, ArcFlowRecord &r, uint32_t run_time, int32_t group) {
    int32_t ssid_id = tallyd_avp_ssid_mapping(r.ssid);
    int32_t ap_id = tallyd_avp_ap_mapping(r.ap_mac);
    if (ssid_id == 0 || ap_id == 0) {
        tallyd_log(LOG_WARNING, "tallyd, failed to get ssid_id = %d, ap_id = %d\n", ssid_id, ap_id);
        return 0;
    }
    if (std::strchr(r.client_mac, '\'')) {
        tallyd_log(LOG_DEBUG, "tallyd, illegal arc client_mac = %s", r.client_mac);
        return 0;
    }
    if (!r.has_category) r.category[0] = '\0';
    escape_text(r.app, "tallyd, escape app = %s");
    escape_text(r.category, "tallyd, escape category = %s");

    flow_row row{run_time, r.app,      r.port,  r.client_mac, ap_id, ssid_id,
                 r.uplink, r.downlink, r.total, r.category,   group};
    return sql.insert(row);
}

// The file ingester: 0 when the file could be opened, -1 when not. Only a
// regular file is opened, relative to the spool's own descriptor; a FIFO, a
// socket, a directory or a link under a flow file's name counts as a file
// that cannot be opened.
int ingest_file(flow_sql &sql, int spool_fd, const std::string &dir, const char *name,
                uint32_t run_time) {
    int32_t group = sql.group_id(name);

    unique_fd file;
    if (tallyd_open_regular(spool_fd, name, &file) != regular_open::ok) {
        char path[PATH_MAX];
        std::snprintf(path, sizeof path, "%s/%s", dir.c_str(), name);
        tallyd_log(LOG_DEBUG, "tallyd, failed to open %s\n", path);
        return -1;
    }
    arc_source src{.fd = file.get(), .buffer = g_file_buffer};
    if (!tallyd_decode_arc(&src, &g_message)) {
        tallyd_log(LOG_WARNING, "tallyd, failed to decode ARC\n");
        return 0;
    }
    // A report without its first field is decoded but not stored.
    if (!g_message.has_serial) return 0;
    for (pb_size_t i = 0; i < g_message.records_count; ++i) {
        if (store_record(sql, g_message.records[i], run_time, group) < 0) break;
    }
    return 0;
}

// Removes one entry the run has listed, whatever it is: a plain file, a
// FIFO, a socket or a link is unlinked (a link, not what it points at), a
// directory is removed with its contents. Dot names go too: a flow file
// named ".x" is read like any other, and one left behind would be counted
// again by every run.
void remove_entry(int spool_fd, const std::string &dir, const char *name) {
    if (unlinkat(spool_fd, name, 0) == 0 || errno == ENOENT) return;
    std::error_code ec;
    std::filesystem::remove_all(std::filesystem::path(dir) / name, ec);
}

bool is_self_or_parent(const char *name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

void commit_run() {
    sqlite3 *temp_db = tallyd_db_set.temp_db.get();
    sql_error err;
    tallyd_dict_flush();  // the run's new AP and SSID ids before the rows naming them
    if (sql_exec(temp_db, "COMMIT TRANSACTION", &err) == SQLITE_OK) return;
    tallyd_log(LOG_ERR, "tallyd, flow commit aErrMsg = %s\n", err.text.c_str());
    // Another connection's lock: the transaction stays open, the next run's
    // BEGIN finds it and its COMMIT takes these rows along.
    if (err.text == TALLYD_ERR_LOCKED) return;
    // Otherwise the run's rows are lost; a transaction still open would
    // swallow the next run's BEGIN and carry these rows into it.
    if (temp_db && !sqlite3_get_autocommit(temp_db)) sql_exec(temp_db, "ROLLBACK TRANSACTION");
}

}  // namespace

int tallyd_handle_flow_clocked(uint32_t run_time, flow_clock_fn clock) {
    uint32_t start = clock();
    std::string dir = tallyd_path(TALLYD_SPOOL_DIR);
    tallyd_dir d(opendir(dir.c_str()));
    if (!d) {
        tallyd_log(LOG_ERR, "tallyd, failed to open %s\n", dir.c_str());
        return 0;
    }

    sql_exec(tallyd_db_set.temp_db.get(), "BEGIN TRANSACTION");
    {
        flow_sql sql;
        const int spool_fd = dirfd(d.get());
        bool reading = true;
        // One pass over the directory: each entry listed is read (while the
        // budget lasts, and when it is named like a flow file) and then
        // removed. The entries the budget leaves unread are removed unread, so
        // the spool never grows; a file that arrives during the run and is not
        // listed stays for the next run rather than being deleted unread.
        while (dirent *e = readdir(d.get())) {
            if (is_self_or_parent(e->d_name)) continue;
            if (reading && is_flow_file(e->d_name)) {
                ingest_file(sql, spool_fd, dir, e->d_name, run_time);
                uint32_t elapsed = clock() - start;
                if (elapsed >= kBudgetSeconds) {
                    tallyd_log(LOG_WARNING, "tallyd, handle flow, timeout=%d-sec\n",
                               static_cast<int32_t>(elapsed));
                    reading = false;
                }
            }
            remove_entry(spool_fd, dir, e->d_name);
        }
    }
    commit_run();
    return 0;
}

int tallyd_handle_flow(uint32_t run_time) {
    return tallyd_handle_flow_clocked(run_time, tallyd_now);
}

void tallyd_pre_handle_flow(void *eloop_data, void *user_data) {
    eloop_register_timeout(kFlowPeriod, 0, tallyd_pre_handle_flow, eloop_data, user_data);
    if (!tallyd_db_set.temp_db) return;
    tallyd_handle_flow(tallyd_now());
}
