#include "core/routes.h"

#include "entity/handlers.h"
#include "events/handlers.h"
#include "reports/handlers.h"

namespace {

// Two handlers on one id run in the order given, on the same message.
constexpr tallyd_route kCtrlRoutes[] = {
    // Report requests from the management daemon; each answers with a reply.
    tallyd_route_of(TALLYD_MSG_GET_CLIENTS_SUMMARY, tallyd_handle_clients_summary),
    tallyd_route_of(TALLYD_MSG_GET_TOP_SUMMARY, tallyd_handle_top_summary),
    tallyd_route_of(TALLYD_MSG_GET_CLIENT_LIST, tallyd_handle_client_list),
    tallyd_route_of(TALLYD_MSG_IGNORED_49),
    tallyd_route_of(TALLYD_MSG_GET_APP_CLIENT, tallyd_handle_app_client),
    tallyd_route_of(TALLYD_MSG_STATIS_SINGLE_CLIENT, tallyd_handle_statis_single_client),
    tallyd_route_of(TALLYD_MSG_STATIS_AP, tallyd_handle_statis_ap),
    tallyd_route_of(TALLYD_MSG_STATIS_SSID, tallyd_handle_statis_ssid),
    tallyd_route_of(TALLYD_MSG_STATIS_CLIENT, tallyd_handle_statis_client),
    tallyd_route_of(TALLYD_MSG_STATIS_AP_CHART, tallyd_handle_statis_ap_chart),
    tallyd_route_of(TALLYD_MSG_STATIS_CLIENT_CHART, tallyd_handle_statis_client_chart),
    // Settings: no reply.
    tallyd_route_of(TALLYD_MSG_SET_STA_HOSTNAME, tallyd_handle_set_sta_hostname),
    tallyd_route_of(TALLYD_MSG_ARC_QPX_INTERFACE, tallyd_handle_arc_qpx_interface),
    // Network events: no reply.
    tallyd_route_of(TALLYD_MSG_EVT_IGNORED_01),
    tallyd_route_of(TALLYD_MSG_AP_ADD, tallyd_handle_ap_add, tallyd_handle_ap_add_wlans),
    tallyd_route_of(TALLYD_MSG_AP_DEL, tallyd_handle_ap_del, tallyd_handle_ap_del_wlans),
    tallyd_route_of(TALLYD_MSG_STA_ACTIVE, tallyd_handle_sta_active),
    tallyd_route_of(TALLYD_MSG_STA_ADD, tallyd_handle_sta_add),
    tallyd_route_of(TALLYD_MSG_AP_WLAN_UPDATE, tallyd_handle_ap_wlan_update),
    tallyd_route_of(TALLYD_MSG_WLAN_GROUP_UPDATE, tallyd_handle_wlan_group_update),
    tallyd_route_of(TALLYD_MSG_APGROUP_UPDATE, tallyd_handle_apgroup_update_wlans,
                    tallyd_handle_apgroup_update_ids),
};

constexpr tallyd_route kStatRoutes[] = {
    tallyd_route_of(TALLYD_MSG_CLIENT_STATS, tallyd_handle_client_stats),
    tallyd_route_of(TALLYD_MSG_STAT_0A, tallyd_handle_stat_0a),
};

}  // namespace

const tallyd_route_table tallyd_ctrl_routes{kCtrlRoutes};
const tallyd_route_table tallyd_stat_routes{kStatRoutes};

int tallyd_ctrl_iface_init() {
    return tallyd_ipc_ctrl_iface_init(&tallyd_ctrl_routes, &tallyd_stat_routes);
}
