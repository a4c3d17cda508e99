#include "db/schema.h"

#include <set>
#include <span>
#include <string>

#include "db/sql.h"

// sqlite_master stores these texts verbatim and other tools read them there,
// so every statement keeps its exact layout, one column per line, and is
// written once here.

namespace {

// ---- temp_db: flow staging (all columns untyped) ----
constexpr const char *kAvpBase =
    "CREATE TABLE avp_base(\t\t\ntime, \t\t\t\napp, \t\t\t\nport, \t\t\t\nclient_mac, \t\t\n"
    "ap_mac, \t\t\t\nssid, \t\t\t\nuplink, \t\t\t\ndownlink, \t\t\ntotal, \t\t\t\n"
    "category, \t\t\ngroup_id\t\t\n);";
constexpr const char *kAvpBaseIdx =
    "CREATE INDEX avp_base_idx ON \navp_base(ap_mac, ssid, app, time)";

// ---- db: hour and day tables, avp_ap ----
constexpr const char *kAppClientHour =
    "CREATE TABLE avp_app_client_hour(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nclient_mac VARCHAR(12), \t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER\t\t\n);";
constexpr const char *kAppClientHourIdx =
    "CREATE INDEX avp_app_client_hour_idx ON \navp_app_client_hour(client_mac, time)";
constexpr const char *kCurveClient =
    "CREATE TABLE avp_curve_client(\t\t\ntime INTEGER, \t\t\t\nclient_mac VARCHAR(12), \t\t\n"
    "uplink INTEGER, \t\t\t\ndownlink INTEGER\t\t\n);";
constexpr const char *kCurveClientIdx =
    "CREATE INDEX avp_curve_client_idx ON \navp_curve_client(client_mac, time)";
constexpr const char *kApSsidHour =
    "CREATE TABLE avp_ap_ssid_hour(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nap_mac INTEGER, \t\t\t\nssid INTEGER, \t\t\t\n"
    "uplink INTEGER, \t\t\t\ndownlink INTEGER, \t\t\ngroup_id INTEGER\t\t\n);";
constexpr const char *kApSsidHourIdx =
    "CREATE INDEX avp_ap_ssid_hour_idx ON \navp_ap_ssid_hour(ssid, ap_mac, group_id, app, time)";
constexpr const char *kAllGroupHour =
    "CREATE TABLE avp_all_group_hour(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\ndownlink INTEGER, \t\t\n"
    "group_id INTEGER\t\t\n);";
constexpr const char *kAllGroupHourIdx =
    "CREATE INDEX avp_all_group_hour_idx ON \navp_all_group_hour(group_id, time)";
constexpr const char *kTopClientHour =
    "CREATE TABLE avp_top_client_hour(\t\t\ntime INTEGER, \t\t\t\nclient_mac VARCHAR(12), \t\t\n"
    "ap_mac INTEGER, \t\t\t\nssid INTEGER, \t\t\t\ntotal INTEGER\t\t\n);";
constexpr const char *kTopClientHourIdx =
    "CREATE INDEX avp_top_client_hour_idx ON avp_top_client_hour(client_mac)";
constexpr const char *kAp =
    "CREATE TABLE avp_ap(\t\t\ntime INTEGER, \t\t\t\nap_mac VARCHAR, \t\t\nmodel VARCHAR, \t\t\n"
    "group_id INTEGER\t\t\n);";
constexpr const char *kApIdx = "CREATE INDEX avp_ap_idx ON avp_ap(ap_mac)";
constexpr const char *kApDay =
    "CREATE TABLE avp_ap_day(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nap_mac INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER\t\t\n);";
constexpr const char *kApDayIdx = "CREATE INDEX avp_ap_day_idx ON \navp_ap_day(ap_mac, app, time)";
constexpr const char *kSsidDay =
    "CREATE TABLE avp_ssid_day(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nssid INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER, \t\t\ngroup_id INTEGER\t\t\n);";
constexpr const char *kSsidDayIdx =
    "CREATE INDEX avp_ssid_day_idx ON \navp_ssid_day(ssid, group_id, app, time)";
constexpr const char *kTopClientDay =
    "CREATE TABLE avp_top_client_day(\t\t\ntime INTEGER, \t\t\t\nclient_mac VARCHAR(12), \t\t\n"
    "ap_mac INTEGER, \t\t\t\nssid INTEGER, \t\t\t\ntotal INTEGER\t\t\n);";
constexpr const char *kTopClientDayIdx =
    "CREATE INDEX avp_top_client_day_idx ON avp_top_client_day(client_mac)";

// ---- db_flash: week and month tables ----
constexpr const char *kApWeek =
    "CREATE TABLE avp_ap_week(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nap_mac INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER\t\t\n);";
constexpr const char *kApWeekIdx =
    "CREATE INDEX avp_ap_week_idx ON \navp_ap_week(ap_mac, app, time)";
constexpr const char *kSsidWeek =
    "CREATE TABLE avp_ssid_week(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nssid INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER, \t\t\ngroup_id INTEGER\t\t\n);";
constexpr const char *kSsidWeekIdx =
    "CREATE INDEX avp_ssid_week_idx ON \navp_ssid_week(ssid, group_id, app, time)";
constexpr const char *kApMonth =
    "CREATE TABLE avp_ap_month(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nap_mac INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER\t\t\n);";
constexpr const char *kApMonthIdx =
    "CREATE INDEX avp_ap_month_idx ON \navp_ap_month(ap_mac, app, time)";
constexpr const char *kSsidMonth =
    "CREATE TABLE avp_ssid_month(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nssid INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER, \t\t\ngroup_id INTEGER\t\t\n);";
constexpr const char *kSsidMonthIdx =
    "CREATE INDEX avp_ssid_month_idx ON \navp_ssid_month(ssid, group_id, app, time)";

// ---- backup_hour_db: hourly contributions to the day rollup ----
constexpr const char *kTopClientBackup =
    "CREATE TABLE avp_top_client_backup(\t\t\ntime INTEGER, \t\t\t\n"
    "client_mac VARCHAR(12), \t\t\nap_mac INTEGER, \t\t\t\nssid INTEGER, \t\t\t\n"
    "total INTEGER\t\t\n);";
constexpr const char *kTopClientBackupIdx =
    "CREATE INDEX avp_top_client_backup_idx ON \navp_top_client_backup(client_mac)";
constexpr const char *kApBackup =
    "CREATE TABLE avp_ap_backup(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nap_mac INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER\t\t\n);";
constexpr const char *kApBackupIdx =
    "CREATE INDEX avp_ap_backup_idx ON \navp_ap_backup(ap_mac, app, time)";
constexpr const char *kSsidBackup =
    "CREATE TABLE avp_ssid_backup(\t\t\ntime INTEGER, \t\t\t\napp VARCHAR, \t\t\t\n"
    "port INTEGER, \t\t\t\nssid INTEGER, \t\t\t\nuplink INTEGER, \t\t\t\n"
    "downlink INTEGER, \t\t\ngroup_id INTEGER\t\t\n);";
constexpr const char *kSsidBackupIdx =
    "CREATE INDEX avp_ssid_backup_idx ON \navp_ssid_backup(ssid, group_id, app, time)";

// ---- statistic_db: AP and client statistics ----
constexpr const char *kStatisApH =
    "CREATE TABLE statis_ap_h(\t\t\ntime INTEGER, \t\t\t\nap_id INTEGER, \t\t\t\n"
    "ssid_id INTEGER, \t\t\t\napgroup_id INTEGER, \t\t\nwlangroup_id INTEGER, \t\t\n"
    "tx_pkts INTEGER, \t\t\t\nrx_pkts INTEGER, \t\t\t\ntotal_pkts INTEGER, \t\t\n"
    "tx_bytes INTEGER, \t\t\nrx_bytes INTEGER, \t\t\ntotal_bytes INTEGER\t\t\n);";
constexpr const char *kStatisApHIdx =
    "CREATE INDEX statis_ap_h_idx ON \nstatis_ap_h(ap_id, ssid_id, apgroup_id)";
constexpr const char *kStatisApD =
    "CREATE TABLE statis_ap_d(\t\t\ntime INTEGER, \t\t\t\nap_id INTEGER, \t\t\t\n"
    "ssid_id INTEGER, \t\t\t\napgroup_id INTEGER, \t\t\nwlangroup_id INTEGER, \t\t\n"
    "tx_pkts INTEGER, \t\t\t\nrx_pkts INTEGER, \t\t\t\ntotal_pkts INTEGER, \t\t\n"
    "tx_bytes INTEGER, \t\t\nrx_bytes INTEGER, \t\t\ntotal_bytes INTEGER\t\t\n);";
constexpr const char *kStatisApDIdx =
    "CREATE INDEX statis_ap_d_idx ON \nstatis_ap_d(ap_id, ssid_id, apgroup_id)";
constexpr const char *kStatisClientInfoH =
    "CREATE TABLE statis_client_info_h(\t\t\ntime INTEGER, \t\t\t\nclient_mac VARCHAR, \t\t\n"
    "ap_id INTEGER, \t\t\t\nssid_id INTEGER, \t\t\t\ndvcinfo_id INTEGER, \t\t\n"
    "apgroup_id INTEGER, \t\t\nwlangroup_id INTEGER, \t\t\nip VARCHAR, \t\t\t\n"
    "ip6 VARCHAR, \t\t\t\nhost_name VARCHAR, \t\t\nvlan INTEGER, \t\t\t\n"
    "channel INTEGER, \t\t\t\nradio INTEGER, \t\t\t\nstatus INTEGER, \t\t\t\n"
    "auth_type VARCHAR, \t\t\nuser_name VARCHAR, \t\t\nactive INTEGER\t\t\n);";
constexpr const char *kStatisClientInfoHIdx =
    "CREATE INDEX statis_client_info_h_idx ON \n"
    "statis_client_info_h(time, client_mac, ap_id, ssid_id, dvcinfo_id, apgroup_id)";
constexpr const char *kStatisClientInfoD =
    "CREATE TABLE statis_client_info_d(\t\t\ntime INTEGER, \t\t\t\nclient_mac VARCHAR, \t\t\n"
    "ap_id INTEGER, \t\t\t\nssid_id INTEGER, \t\t\t\ndvcinfo_id INTEGER, \t\t\n"
    "apgroup_id INTEGER, \t\t\nwlangroup_id INTEGER, \t\t\nip VARCHAR, \t\t\t\n"
    "ip6 VARCHAR, \t\t\t\nhost_name VARCHAR, \t\t\nvlan INTEGER, \t\t\t\n"
    "channel INTEGER, \t\t\t\nradio INTEGER, \t\t\t\nstatus INTEGER, \t\t\t\n"
    "auth_type VARCHAR, \t\t\nuser_name VARCHAR, \t\t\nactive INTEGER\t\t\n);";
constexpr const char *kStatisClientInfoDIdx =
    "CREATE INDEX statis_client_info_d_idx ON \n"
    "statis_client_info_d(time, client_mac, ap_id, ssid_id, dvcinfo_id, apgroup_id)";
constexpr const char *kStatisClientH =
    "CREATE TABLE statis_client_h(\t\t\ntime INTEGER, \t\t\t\nclient_mac VARCHAR, \t\t\n"
    "ap_id INTEGER, \t\t\t\napgroup_id INTEGER, \t\t\nssid_id INTEGER, \t\t\t\n"
    "wlangroup_id INTEGER, \t\t\nrssi INTEGER, \t\t\t\ntx_pkts INTEGER, \t\t\t\n"
    "rx_pkts INTEGER, \t\t\t\ntotal_pkts INTEGER, \t\t\ntx_bytes INTEGER, \t\t\n"
    "rx_bytes INTEGER, \t\t\ntotal_bytes INTEGER\t\t\n);";
constexpr const char *kStatisClientHIdx =
    "CREATE INDEX statis_client_h_idx ON \nstatis_client_h(client_mac, ap_id, apgroup_id, ssid_id)";
constexpr const char *kStatisClientD =
    "CREATE TABLE statis_client_d(\t\t\ntime INTEGER, \t\t\t\nclient_mac VARCHAR, \t\t\n"
    "ap_id INTEGER, \t\t\t\napgroup_id INTEGER, \t\t\nssid_id INTEGER, \t\t\t\n"
    "wlangroup_id INTEGER, \t\t\nrssi INTEGER, \t\t\t\ntx_pkts INTEGER, \t\t\t\n"
    "rx_pkts INTEGER, \t\t\t\ntotal_pkts INTEGER, \t\t\ntx_bytes INTEGER, \t\t\n"
    "rx_bytes INTEGER, \t\t\ntotal_bytes INTEGER\t\t\n);";
constexpr const char *kStatisClientDIdx =
    "CREATE INDEX statis_client_d_idx ON \nstatis_client_d(client_mac, ap_id, apgroup_id, ssid_id)";
constexpr const char *kStatisApWlan =
    "CREATE TABLE statis_ap_wlan(\t\t\ntime INTEGER, \t\t\t\nap_id INTEGER, \t\t\t\n"
    "wlan_id INTEGER, \t\t\t\napgrp_id INTEGER, \t\t\t\nwlangrp_id INTEGER\t\t\n);";
constexpr const char *kStatisApWlanIdx =
    "CREATE INDEX statis_ap_wlan_idx ON \nstatis_ap_wlan(ap_id, wlan_id)";
constexpr const char *kStatisApChart =
    "CREATE TABLE statis_ap_chart(\t\t\ntime INTEGER, \t\t\t\nap_id INTEGER, \t\t\t\n"
    "apgroup_id INTEGER, \t\t\ntx_bytes INTEGER, \t\t\nrx_bytes INTEGER, \t\t\n"
    "client_count INTEGER\t\t\n);";
constexpr const char *kStatisApChartIdx =
    "CREATE INDEX statis_ap_chart_idx ON \nstatis_ap_chart(ap_id, apgroup_id)";

// Each CREATE TABLE directly followed by the CREATE INDEX of its table.
constexpr const char *kMainTables[] = {
    kAppClientHour, kAppClientHourIdx, kCurveClient,  kCurveClientIdx,
    kApSsidHour,    kApSsidHourIdx,    kAllGroupHour, kAllGroupHourIdx,
    kTopClientHour, kTopClientHourIdx, kAp,           kApIdx,
    kApDay,         kApDayIdx,         kSsidDay,      kSsidDayIdx,
    kTopClientDay,  kTopClientDayIdx,
};
constexpr const char *kFlashTables[] = {
    kApWeek, kApWeekIdx, kSsidWeek, kSsidWeekIdx, kApMonth, kApMonthIdx, kSsidMonth, kSsidMonthIdx,
};
constexpr const char *kTempTables[] = {kAvpBase, kAvpBaseIdx};
constexpr const char *kBackupTables[] = {
    kTopClientBackup, kTopClientBackupIdx, kApBackup, kApBackupIdx, kSsidBackup, kSsidBackupIdx,
};
constexpr const char *kStatisticTables[] = {
    kStatisApH,         kStatisApHIdx,         kStatisApD,         kStatisApDIdx,
    kStatisClientInfoH, kStatisClientInfoHIdx, kStatisClientInfoD, kStatisClientInfoDIdx,
    kStatisClientH,     kStatisClientHIdx,     kStatisClientD,     kStatisClientDIdx,
};

constexpr const char *kCreateFailed = "tallyd, sql = %s, aErrMsg = %s\n";

tallyd_ap_wlan_seeder ap_wlan_seeder = nullptr;

// Runs the statements in order; the first failure is logged and ends the run.
int create_all(sql_conn &conn, std::span<const char *const> statements) {
    if (!conn) return -1;
    for (const char *sql : statements)
        if (sql_exec_log(conn.get(), sql, kCreateFailed) != SQLITE_OK) return -1;
    return 0;
}

}  // namespace

int tallyd_create_main_tables(sql_conn &db) {
    return create_all(db, kMainTables);
}

int tallyd_create_flash_tables(sql_conn &db_flash) {
    return create_all(db_flash, kFlashTables);
}

int tallyd_create_temp_tables(sql_conn &temp_db) {
    return create_all(temp_db, kTempTables);
}

int tallyd_create_backup_tables(sql_conn &backup_hour_db) {
    return create_all(backup_hour_db, kBackupTables);
}

int tallyd_create_statis_ap_wlan(sql_conn &statistic_db) {
    const char *const statements[] = {kStatisApWlan, kStatisApWlanIdx};
    if (create_all(statistic_db, statements) != 0) return -1;
    // A new table starts with the WLANs the configuration already gives
    // every AP group, so reports can attribute traffic from the first hour.
    if (ap_wlan_seeder) ap_wlan_seeder(statistic_db);
    return 0;
}

void tallyd_set_ap_wlan_seeder(tallyd_ap_wlan_seeder seeder) {
    ap_wlan_seeder = seeder;
}

int tallyd_create_statis_ap_chart(sql_conn &statistic_db) {
    const char *const statements[] = {kStatisApChart, kStatisApChartIdx};
    return create_all(statistic_db, statements);
}

int tallyd_create_statistic_tables(sql_conn &statistic_db) {
    if (create_all(statistic_db, kStatisticTables) != 0) return -1;
    if (tallyd_create_statis_ap_wlan(statistic_db) != 0) return -1;
    return tallyd_create_statis_ap_chart(statistic_db);
}

namespace {

using enum tallyd_table;
constexpr tallyd_table kMainSchema[] = {
    avp_app_client_hour, avp_curve_client,    avp_ap_ssid_hour,
    avp_all_group_hour,  avp_top_client_hour, avp_ap,
    avp_ap_day,          avp_ssid_day,        avp_top_client_day,
};
constexpr tallyd_table kFlashSchema[] = {avp_ap_week, avp_ssid_week, avp_ap_month, avp_ssid_month};
constexpr tallyd_table kBackupSchema[] = {avp_top_client_backup, avp_ap_backup, avp_ssid_backup};
// The tables the migration rebuilds come last.
constexpr tallyd_table kStatisticSchema[] = {
    statis_ap_h,     statis_ap_d,     statis_client_info_h, statis_client_info_d,
    statis_client_h, statis_client_d, statis_ap_wlan,       statis_ap_chart,
};

std::span<const tallyd_table> schema_tables(tallyd_schema schema) {
    switch (schema) {
        case tallyd_schema::main:
            return kMainSchema;
        case tallyd_schema::flash:
            return kFlashSchema;
        case tallyd_schema::backup:
            return kBackupSchema;
        case tallyd_schema::statistic:
            return kStatisticSchema;
        case tallyd_schema::statistic_restored:
            return std::span(kStatisticSchema).first(6);
    }
    return {};
}

}  // namespace

int tallyd_schema_check(sql_conn &conn, tallyd_schema schema, sql_error *err) {
    sql_error local;
    sql_error &e = err ? *err : local;
    sql_table names;
    // Reading sqlite_master is what fails on a file that is not a database
    // or is shorter than its header says.
    if (sql_get_table(conn.get(), "SELECT name FROM sqlite_master WHERE type='table'", names, &e) !=
        SQLITE_OK)
        return e.rc;
    std::set<std::string> present;
    for (int r = 0; r < names.rows(); ++r)
        if (names.at(r, 0)) present.insert(names.at(r, 0));
    for (tallyd_table t : schema_tables(schema)) {
        if (present.contains(tallyd_table_name(t))) continue;
        e = {SQLITE_ERROR, std::string("no such table: ") + tallyd_table_name(t)};
        return SQLITE_ERROR;
    }
    return SQLITE_OK;
}
