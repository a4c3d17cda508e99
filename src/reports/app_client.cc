// The clients of one application or one port.
#include <cstdlib>

#include "base/log.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "reports/report_sql.h"
#include "reports/report_wire.h"
#include "reports/top_lists.h"
#include "reports/usage.h"

using namespace report_wire;

namespace {

constexpr int kTop = 10;

constexpr const char *kTotalApp =
    "SELECT SUM(uplink), SUM(downlink) FROM avp_app_client_hour WHERE app='%s'";
constexpr const char *kTotalPort =
    "SELECT SUM(uplink), SUM(downlink) FROM avp_app_client_hour WHERE port=%d";
constexpr const char *kClientsApp =
    "SELECT client_mac, SUM(uplink), SUM(downlink) FROM avp_app_client_hour WHERE app='%s' "
    "GROUP BY client_mac ORDER BY (SUM(uplink)+SUM(downlink)) DESC LIMIT %d";
constexpr const char *kClientsPort =
    "SELECT client_mac, SUM(uplink), SUM(downlink) FROM avp_app_client_hour WHERE port=%d "
    "GROUP BY client_mac\nORDER BY (SUM(uplink)+SUM(downlink)) DESC LIMIT %d";

}  // namespace

uint32_t tallyd_avp_app_client_list(const char *name, bool by_app, std::span<uint8_t> data) {
    sql_conn &db = tallyd_db_set.db;
    if (!db) return 0;
    const int32_t port = std::atoi(name);
    report_query total_q =
        by_app ? report_query(db, 512, kTotalApp, name) : report_query(db, 512, kTotalPort, port);
    report_rows rows;
    uint64_t total = 0;
    if (report_select(total_q, &rows, TALLYD_RECOVER_DB) && rows.rows())
        total = rows.u64_at(0, 0) + rows.u64_at(0, 1);

    report_query list_q = by_app ? report_query(db, 512, kClientsApp, name, kTop)
                                 : report_query(db, 512, kClientsPort, port, kTop);
    if (report_select(list_q, &rows, TALLYD_RECOVER_DB)) {
        for (int r = 0; r < rows.rows(); ++r) {
            std::span<uint8_t> rec = record(data, kAppClients.records, static_cast<size_t>(r));
            tallyd_report_client(rec, rows.at(r, 0), rows.u64_at(r, 1) + rows.u64_at(r, 2), total);
        }
    }
    wire_put_num(data, kClientsTotal, total);
    return kAppClients.data_size;
}
