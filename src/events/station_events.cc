#include "events/station_events.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <string>

#include "base/clock.h"
#include "base/log.h"
#include "db/recover.h"
#include "db/sql_shown.h"
#include "entity/dict.h"
#include "events/event_db.h"
#include "events/station_text.h"

namespace {

using namespace events_wire;

constexpr size_t kStatementSize = 1024;
constexpr const char *kValueErr = "tallyd, value = %s, aErrMsg = %s\n";

constexpr sql_form kSelectClient(
    "SELECT client_mac FROM statis_client_info_h WHERE client_mac='%s'");
constexpr sql_form kSetActive("UPDATE statis_client_info_h SET active=%d WHERE client_mac='%s'");
constexpr sql_form kRefreshClient(
    "UPDATE statis_client_info_h SET \nactive=%d, ip='%s', ip6='%s', \nhost_name='%s', vlan=%d, "
    "\nauth_type='%s', user_name='%s', channel=%d \nWHERE client_mac='%s'");
constexpr sql_form kInsertClient(
    "INSERT INTO statis_client_info_h(time, client_mac, ip, ip6, ap_id, apgroup_id, \n"
    "dvcinfo_id, host_name, ssid_id, vlan, channel, \nradio, auth_type, user_name, active) \n"
    "VALUES(%lu, '%s', '%s', '%s', %d, %d, \n%d, '%s', %d, %d, %d, \n%d, '%s', '%s', %d)");

// The rows the client MAC's SELECT found (the MAC itself, as stored).
struct found_clients {
    int rows = 0;
    std::string mac;
};

int select_client(sql_conn &db, const char *mac, found_clients &found, sql_error &err) {
    auto row = [&](sqlite3_stmt *st) {
        if (found.rows++ == 0) found.mac = sql_col_text(st, 0);
    };
    return sql_shown_query(db, kSelectClient, err, row, mac);
}

}  // namespace

// Station events arrive by the thousand a minute on a busy controller, and
// the directory has no index on client_mac: every statement that names a
// MAC reads the whole table. So a handler first runs the one UPDATE that a
// known client gets (it changes nothing, and writes nothing to the file, for
// an unknown one) and reads how many rows it changed, which says what the
// lookup would have said. Only when that UPDATE fails does the handler take
// the long way, lookup first, so that a failure is logged as it always was.

void tallyd_sta_active(std::string_view mac_view) {
    const std::string mac(mac_view);
    if (mac.find('\'') != std::string::npos) return;
    sql_conn &db = events_statistic_db();
    sql_error err;
    if (sql_shown_run(db, kSetActive, err, int32_t{1}, mac.c_str()) == SQLITE_OK) return;
    found_clients found;
    if (select_client(db, mac.c_str(), found, err) != SQLITE_OK) {
        sql_shown_log("tallyd, update sta: %s, aErrMsg = %s\n", err, kStatementSize, kSelectClient,
                      mac.c_str());
        return;
    }
    // Every row found holds this MAC: one statement marks them all.
    if (found.rows > 0)
        sql_shown_run_log(db, kSetActive, kStatementSize, "tallyd, value=%s, aErrMsg = %s\n", err,
                          int32_t{1}, found.mac.c_str());
}

void tallyd_sta_add(const station &s) {
    station_text text(s);
    if (!text.mac_ok()) return;
    char ip[32], ip6[46];
    inet_ntop(AF_INET, s.ip, ip, sizeof ip);
    inet_ntop(AF_INET6, s.ip6, ip6, sizeof ip6);
    const uint32_t now = tallyd_now();
    // Only the quoted texts are escaped, never the MAC the lookup uses.
    text.escape_all();

    sql_conn &db = events_statistic_db();
    sql_error err;
    found_clients found;
    if (sql_shown_run(db, kRefreshClient, err, int32_t{0}, ip, ip6, text.host(), int32_t{s.vlan},
                      text.auth(), text.user(), int32_t{s.channel},
                      text.mac.c_str()) == SQLITE_OK) {
        if (sqlite3_changes(db.get()) > 0) return;
    } else if (select_client(db, text.mac.c_str(), found, err) != SQLITE_OK) {
        sql_shown_log(kValueErr, err, kStatementSize, kSelectClient, text.mac.c_str());
        tallyd_recover_if_damaged(db, err, TALLYD_RECOVER_STATISTIC);
        return;
    }
    if (found.rows > 0) {
        sql_shown_run_log(db, kRefreshClient, kStatementSize, kValueErr, err, int32_t{0}, ip, ip6,
                          text.host(), int32_t{s.vlan}, text.auth(), text.user(),
                          int32_t{s.channel}, found.mac.c_str());
    } else {
        const int32_t ssid_id = tallyd_avp_ssid_mapping(text.ssid.c_str());
        const int32_t ap_id = tallyd_avp_ap_mapping(text.ap_mac.c_str());
        const int32_t dvcinfo_id = tallyd_avp_dvcinfo_mapping(text.device.c_str());
        tallyd_dict_flush();
        if (ssid_id != 0 && ap_id != 0)
            sql_shown_run_log(db, kInsertClient, kStatementSize,
                              "tallyd, add sta = %s, aErrMsg = %s\n", err, now, text.mac.c_str(),
                              ip, ip6, ap_id, int32_t{s.apgroup}, dvcinfo_id, text.host(), ssid_id,
                              int32_t{s.vlan}, int32_t{s.channel}, int32_t{s.radio}, text.auth(),
                              text.user(), int32_t{0});
        else
            tallyd_log(LOG_ERR, "tallyd, add sta, no ap_id or ssid_id\n");
    }
    tallyd_recover_if_damaged(db, err, TALLYD_RECOVER_STATISTIC);
}
