// The daemon's tables and the columns statements choose, by id.
//
// A statement that takes a table (or column) name as a parameter takes one
// of these ids, never a text: a name printed into SQL is always one of the
// daemon's own and can never come from a message, a flow file or the
// configuration.
#pragma once

#include <cstdint>

enum class tallyd_table : uint8_t {
    // temp_db
    avp_base,
    // db
    avp_app_client_hour,
    avp_curve_client,
    avp_ap_ssid_hour,
    avp_all_group_hour,
    avp_top_client_hour,
    avp_ap,
    avp_ap_day,
    avp_ssid_day,
    avp_top_client_day,
    // db_flash
    avp_ap_week,
    avp_ssid_week,
    avp_ap_month,
    avp_ssid_month,
    // backup_hour_db
    avp_top_client_backup,
    avp_ap_backup,
    avp_ssid_backup,
    // statistic_db
    statis_ap_h,
    statis_ap_d,
    statis_client_info_h,
    statis_client_info_d,
    statis_client_h,
    statis_client_d,
    statis_ap_wlan,
    statis_ap_chart,
    // top_list_db, per report
    top_client_list,
    top_ssid_list,
    top_app_list,
    top_ap_list,
    total_client_list,
};

enum class tallyd_column : uint8_t { ssid };

// The name as it appears in SQL ("avp_base"). Never null.
const char *tallyd_table_name(tallyd_table table);
const char *tallyd_column_name(tallyd_column column);
