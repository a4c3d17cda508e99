#include "db/tables.h"

#include <iterator>

namespace {

// In the order of the enumeration.
constexpr const char *kTableNames[] = {
    "avp_base",
    "avp_app_client_hour",
    "avp_curve_client",
    "avp_ap_ssid_hour",
    "avp_all_group_hour",
    "avp_top_client_hour",
    "avp_ap",
    "avp_ap_day",
    "avp_ssid_day",
    "avp_top_client_day",
    "avp_ap_week",
    "avp_ssid_week",
    "avp_ap_month",
    "avp_ssid_month",
    "avp_top_client_backup",
    "avp_ap_backup",
    "avp_ssid_backup",
    "statis_ap_h",
    "statis_ap_d",
    "statis_client_info_h",
    "statis_client_info_d",
    "statis_client_h",
    "statis_client_d",
    "statis_ap_wlan",
    "statis_ap_chart",
    "top_client_list",
    "top_ssid_list",
    "top_app_list",
    "top_ap_list",
    "total_client_list",
};
static_assert(std::size(kTableNames) == static_cast<size_t>(tallyd_table::total_client_list) + 1);

constexpr const char *kColumnNames[] = {"ssid"};

}  // namespace

const char *tallyd_table_name(tallyd_table table) {
    return kTableNames[static_cast<size_t>(table)];
}

const char *tallyd_column_name(tallyd_column column) {
    return kColumnNames[static_cast<size_t>(column)];
}
