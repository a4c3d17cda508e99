// The counters batch of the statistics socket (tallyd_client_stats).
#include "base/clock.h"
#include "base/log.h"
#include "db/recover.h"
#include "db/retention.h"
#include "db/sql_shown.h"
#include "entity/dict.h"
#include "entity/hostname.h"
#include "events/event_db.h"
#include "events/station_events.h"
#include "events/station_text.h"

namespace {

using namespace events_wire;

constexpr size_t kStatementSize = 512;
constexpr const char *kValueErr = "tallyd, value = %s, aErrMsg = %s\n";

// Batches of more than 100 stations record only stations that moved at least
// this many bytes, deliberately.
constexpr int32_t kBusyBatch = 101;
constexpr uint64_t kQuietBytes = 500000;
// A batch gives up once this long has passed since its timestamp.
constexpr uint32_t kBudgetSecs = 12;
constexpr uint32_t kPurgeBack = 3600;
constexpr int32_t kHourlyPeriod = 7200;

// The counters path stores these in place of real AP and SSID ids,
// deliberately; only the station add stores real ones.
constexpr int32_t kCounterApId = 1;
constexpr int32_t kCounterSsidId = 1;
constexpr int32_t kActive = 1;
// The host name stored when the reported one cannot be.
constexpr const char *kNoHostName = "#";

constexpr sql_form kSelectInfo(
    "SELECT client_mac, host_name FROM statis_client_info_h \nWHERE client_mac='%s'");
constexpr sql_form kInsertInfo(
    "INSERT INTO statis_client_info_h(\ntime, client_mac, dvcinfo_id, host_name, ap_id, ssid_id, "
    "active) \nVALUES(%lu, '%s', %d, '%s', %d, %d, %d)");
constexpr sql_form kInsertCounters(
    "INSERT INTO statis_client_h(\ntime, client_mac, ap_id, apgroup_id, ssid_id, wlangroup_id, "
    "rssi, \ntx_pkts, rx_pkts, total_pkts, \ntx_bytes, rx_bytes, total_bytes) \n"
    "VALUES(%lu, '%s', %d, %d, %d, %d, %d, \n%llu, %llu, %llu, \n%llu, %llu, %llu)");

// What the directory knows of a client.
struct directory_entry {
    bool found = false;
    bool named = false;  // a non-empty host name is stored
};

// Gives the client a directory row, or a host name when its row has none.
// false when that failed (logged) and the station is to be skipped.
bool update_directory(sql_conn &db, uint32_t t, const station_text &text, int32_t dvcinfo_id,
                      directory_entry entry, sql_error &err) {
    if (entry.found) {
        if (entry.named) return true;
        return sql_shown_run_log(db, TALLYD_SET_HOST_NAME_SQL, kStatementSize, kValueErr, err, t,
                                 text.host(), text.mac.c_str()) == SQLITE_OK;
    }
    if (sql_shown_run(db, kInsertInfo, err, t, text.mac.c_str(), dvcinfo_id, text.host(),
                      kCounterApId, kCounterSsidId, kActive) == SQLITE_OK)
        return true;
    sql_shown_log(LOG_DEBUG, "tallyd = %s, aErrMsg = %s\n", err, kStatementSize, kInsertInfo, t,
                  text.mac.c_str(), dvcinfo_id, text.host(), kCounterApId, kCounterSsidId, kActive);
    if (sql_shown_run_log(db, kInsertInfo, kStatementSize, kValueErr, err, t, text.mac.c_str(),
                          dvcinfo_id, kNoHostName, kCounterApId, kCounterSsidId,
                          kActive) != SQLITE_OK)
        return false;
    tallyd_log(LOG_DEBUG, "tallyd, success to try again\n");
    return true;
}

// Records one station. Returns true when its counter row went in; err
// keeps the last failure.
bool record_station(sql_conn &db, uint32_t t, int32_t count, const station &s, sql_error &err) {
    if (s.client_mac.size() != 17) return false;
    const uint64_t total_bytes = s.tx_bytes + s.rx_bytes;
    if (count >= kBusyBatch && total_bytes < kQuietBytes) return false;

    station_text text(s);
    const int32_t dvcinfo_id = tallyd_avp_dvcinfo_mapping(text.device.c_str());
    directory_entry entry;
    auto row = [&](sqlite3_stmt *st) {
        if (entry.found) return;
        entry.found = true;
        entry.named = !sql_col_text(st, 1).empty();
    };
    if (sql_shown_query(db, kSelectInfo, err, row, text.mac.c_str()) != SQLITE_OK) {
        sql_shown_log(kValueErr, err, kStatementSize, kSelectInfo, text.mac.c_str());
        return false;
    }
    if (text.mac.has('\'') || text.ap_mac.has('\'')) return false;
    // Only the host name is stored on this path.
    text.host_name.escape();
    if (!update_directory(db, t, text, dvcinfo_id, entry, err)) return false;

    const uint64_t total_pkts = s.tx_pkts + s.rx_pkts;
    return sql_shown_run_log(db, kInsertCounters, kStatementSize, kValueErr, err, t,
                             text.mac.c_str(), kCounterApId, int32_t{s.apgroup}, kCounterSsidId,
                             int32_t{s.wlangroup}, int32_t{s.rssi}, s.tx_pkts, s.rx_pkts,
                             total_pkts, s.tx_bytes, s.rx_bytes, total_bytes) == SQLITE_OK;
}

}  // namespace

void tallyd_client_stats(std::span<const uint8_t> msg) {
    const uint32_t t = read_batch_time(msg);
    const int32_t count = read_batch_count(msg);
    sql_conn &db = events_statistic_db();
    tallyd_purge_statistic(t - kPurgeBack, db, kHourlyPeriod);

    // The most recent failure of the batch decides whether the database is
    // rebuilt afterwards.
    sql_error last;
    sql_error err;
    if (sql_exec(db.get(), "BEGIN TRANSACTION", &err) != SQLITE_OK) last = err;
    for (int32_t i = 0; i < count; ++i) {
        // Past the end of the datagram every record reads as zeros and
        // would be skipped for its empty MAC.
        std::span<const uint8_t> rec = batch_record(msg, static_cast<size_t>(i));
        if (rec.empty()) break;
        const bool recorded = record_station(db, t, count, read_station(rec), err);
        if (err.failed()) last = err;
        if (!recorded) continue;
        // Unsigned: a timestamp ahead of the clock counts as late too.
        const uint32_t elapsed = tallyd_now() - t;
        if (elapsed >= kBudgetSecs) {
            tallyd_log(LOG_WARNING, "tallyd, update STA timeout=%d-sec, count=%d\n",
                       static_cast<int32_t>(elapsed), i);
            break;
        }
    }
    tallyd_dict_flush();
    if (sql_exec_log_msg(db.get(), "COMMIT TRANSACTION",
                         "tallyd, update sta transaction, aErrMsg = %s\n", &err) != SQLITE_OK)
        last = err;
    tallyd_log(LOG_DEBUG, "tallyd, sta count = %d\n", count);
    tallyd_recover_if_damaged(db, last, TALLYD_RECOVER_STATISTIC);
}
