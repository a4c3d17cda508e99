// The pieces of the top summary: period totals, the fillers of the scratch
// lists, the four record builders, client counts and client details.
//
// The hour period reads the five-minute tables of db directly. The day
// period adds three sources (the day tables, the backup tables of
// backup_hour_db and the hour rows newer than the last backup run): each
// filler copies one source's ten largest groups into its scratch table of
// top_list_db, and the builder regroups the (up to thirty) rows. The
// scratch tables themselves are made and dropped by
// tallyd_create_top_list_table / tallyd_drop_top_list_table (db/top_list.h).
//
// Query failures are logged in the daemon's words; a damaged database is
// rebuilt (db/recover.h: the statement's own database: db, backup_hour_db,
// the statistic database for client details, or a fresh avp_top_list.db).
// Records gathered before a failure stay in the reply.
#pragma once

#include <cstdint>
#include <span>

#include "db/db_set.h"
#include "db/tables.h"

class report_reply;

// Where one source's rows are: its code (stored in the scratch tables' id
// column) and its client totals, application and SSID tables (of db, or of
// backup_hour_db for the backup).
struct top_source {
    uint32_t code;
    tallyd_table clients;
    tallyd_table apps;
    tallyd_table ssids;
};

inline constexpr top_source kTopSourceHour{0, tallyd_table::avp_top_client_hour,
                                           tallyd_table::avp_all_group_hour,
                                           tallyd_table::avp_ap_ssid_hour};
inline constexpr top_source kTopSourceDay{1, tallyd_table::avp_top_client_day,
                                          tallyd_table::avp_ssid_day, tallyd_table::avp_ssid_day};
inline constexpr top_source kTopSourceBackup{4, tallyd_table::avp_top_client_backup,
                                             tallyd_table::avp_ssid_backup,
                                             tallyd_table::avp_ssid_backup};

// The source of a code (0, 1 or 4); the hour for any other.
const top_source &tallyd_top_source(uint32_t code);

// Sum of `total` in the source's client totals table, counting only rows
// newer than bound when bound is non-zero. 0 when the database is closed,
// the query fails or the table is empty.
uint64_t tallyd_top_period_total(uint32_t source, sql_conn &db, uint32_t bound);

// Fillers: the source's ten largest groups (rows newer than bound when it is
// non-zero) into top_app_list, top_ap_list, top_ssid_list or
// top_client_list, with id = source. Groups of no traffic are left out; the
// first failing insert ends the filler.
void tallyd_top_fill_apps(sql_conn &db, uint32_t source, uint32_t bound);
void tallyd_top_fill_aps(sql_conn &db, uint32_t source, uint32_t bound);
void tallyd_top_fill_ssids(sql_conn &db, uint32_t source, uint32_t bound);
void tallyd_top_fill_clients(sql_conn &db, uint32_t source, uint32_t bound);

// Builders: clear their array of ten records in the reply, set the data
// length to its size and write one record per group, largest first, from
// the hour tables (period 0) or the scratch lists (period 1), with shares of
// total. Nothing at all when total is 0. The AP builder also leaves the
// reply untouched when the configuration's "ap-list" cannot be read.
void tallyd_top_build_apps(uint64_t total, uint32_t period, report_reply &reply);
void tallyd_top_build_aps(uint64_t total, uint32_t period, report_reply &reply);
void tallyd_top_build_ssids(uint64_t total, uint32_t period, report_reply &reply);
void tallyd_top_build_clients(uint64_t total, uint32_t period, report_reply &reply);

// Distinct clients of one AP id or SSID id in the hour client totals table.
uint32_t tallyd_top_count_clients(const char *column, int32_t id);
// Distinct clients gathered in total_client_list so far.
uint32_t tallyd_top_count_collected();
// Adds the distinct clients of one SSID (ssid_id non-zero) or one AP from a
// source (rows older than bound when non-zero) to total_client_list. The
// list is not emptied between calls: the counts of the day period are
// cumulative over the records of one reply.
void tallyd_top_collect_clients(sql_conn &db, uint32_t source, uint32_t bound, int32_t ssid_id,
                                int32_t ap_id);

// Fills the details of a client record (offsets 44 to 407; the colon-form
// MAC at offset 0 already written) from the oldest row of the client
// directory table `table` in the statistic database, with a host name of
// "#" replaced by the name configured for the client. 1 when a row with a
// host name was found, else 0.
int tallyd_top_client_details(std::span<uint8_t> record, tallyd_table table);

// One client record: the stored 12-digit MAC in colon form and lower case,
// its details (statis_client_info_h, else statis_client_info_d), bytes and
// share of total. The application clients use the same record.
void tallyd_report_client(std::span<uint8_t> record, const char *stored_mac, uint64_t bytes,
                          uint64_t total);

// bytes × 10000 / total in unsigned 64-bit arithmetic, truncated: a share
// in hundredths of a percent. 0 when total is 0.
uint32_t tallyd_report_share(uint64_t bytes, uint64_t total);
