// Flow ingestion against bare SQLite: 1,024 spool files of 50 entries (one
// report per AP of the largest platform) through the flow task, and the same
// 51,200 rows inserted by one prepared statement in one transaction into the
// same avp_base schema. The first run also maps every AP for the first time
// and saves each list that gained entries once, before its rows commit; it is
// reported apart from the steady state, where the dictionaries already hold
// every entry. Both print the repository saves of their run.

#include <fcntl.h>
#include <pb_decode.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/file.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/schema.h"
#include "db/sql.h"
#include "entity/dict.h"
#include "flow/ingest.h"
#include "flow/ingest_stream.h"
#include "sim/arc_writer.h"
#include "support/bench_util.h"
#include "support/flow_workload.h"

namespace {

constexpr int kSteadyRounds = 5;
constexpr uint32_t kRunTime = 1700000000;

void fill_spool(const std::vector<bench_spool_file> &files) {
    std::string spool = tallyd_path(TALLYD_SPOOL_DIR);
    for (const bench_spool_file &f : files) arc_write_file(spool, f.name, f.bytes);
}

void seed_repository() {
    std::string dir = tallyd_path(TALLYD_XREPO_DIR);
    std::filesystem::create_directories(dir);
    for (const char *list : {"avpap-list", "avpssid-list"}) {
        if (FILE *f = std::fopen((dir + "/" + list + ".xml").c_str(), "w")) {
            std::fprintf(f, "<?xml version=\"1.0\"?>\n<%s />\n", list);
            std::fclose(f);
        }
    }
}

// nanopb's own share of a run: decoding every file from memory.
double decode_only(const std::vector<bench_spool_file> &files) {
    auto msg = std::make_unique<ArcMessage>();
    bench_timer t;
    for (const bench_spool_file &f : files) {
        pb_istream_t s = pb_istream_from_buffer(f.bytes.data(), f.bytes.size());
        pb_decode(&s, ArcMessage_fields, msg.get());
    }
    return t.seconds();
}

// The file side of a run that bare SQLite does not have, with the daemon's
// own reader: every spool file opened, read and decoded, then the spool
// emptied. *decode_s and *clear_s get the two shares.
void file_side(const std::vector<bench_spool_file> &files, double *decode_s, double *clear_s) {
    fill_spool(files);
    std::string spool = tallyd_path(TALLYD_SPOOL_DIR);
    auto msg = std::make_unique<ArcMessage>();
    static pb_byte_t buffer[64 * 1024];
    bench_timer t;
    for (const bench_spool_file &f : files) {
        unique_fd fd(open((spool + "/" + f.name).c_str(), O_RDONLY | O_CLOEXEC));
        arc_source src{.fd = fd.get(), .buffer = buffer};
        tallyd_decode_arc(&src, msg.get());
    }
    *decode_s = t.seconds();
    t.restart();
    for (const bench_spool_file &f : files) unlink((spool + "/" + f.name).c_str());
    *clear_s = t.seconds();
}

// One daemon run over a freshly filled spool into an empty avp_base;
// *run_saves (optional) gets the repository saves it wrote.
double daemon_run(const std::vector<bench_spool_file> &files, int64_t *rows,
                  uint64_t *run_saves = nullptr) {
    sql_exec(tallyd_db_set.temp_db.get(), "DELETE FROM avp_base");
    fill_spool(files);
    const uint64_t saves = tallyd_dict_save_count();
    bench_timer t;
    tallyd_handle_flow(kRunTime);
    double s = t.seconds();
    *rows = bench_count(tallyd_db_set.temp_db, "avp_base");
    if (run_saves) *run_saves = tallyd_dict_save_count() - saves;
    return s;
}

// The bare cost: the same rows, one prepared statement, one transaction, into
// an empty avp_base of its own database file beside temp_db. Emptied before
// the timer starts, as the daemon's side is: only the inserts are timed.
double bare_run(sql_conn &conn, const std::vector<bench_base_row> &rows) {
    sql_exec(conn.get(), "DELETE FROM avp_base");
    bench_timer t;
    bench_insert_avp_base(conn, rows, kRunTime);
    return t.seconds();
}

}  // namespace

int main() {
    bench_root root;
    tallyd_clock_set(kRunTime);
    tallyd_sys_info.ap_max = 1024;  // the largest platform's dictionary sizes
    tallyd_sys_info.ssid_max = 256;
    tallyd_sys_info.apgroup_max = 256;
    tallyd_sys_info.dvcinfo_max = 256;
    seed_repository();
    std::filesystem::create_directories(tallyd_path(TALLYD_SPOOL_DIR));
    tallyd_create_avp_db(&tallyd_db_set);
    tallyd_create_avp_temp_db(&tallyd_db_set);

    std::string bare_path = root.path() + "/tmp/tallyd/bare.db";
    sql_conn bare = bench_open(bare_path);
    tallyd_create_temp_tables(bare);
    if (!tallyd_db_set.db || !tallyd_db_set.temp_db || !bare) {
        std::fprintf(stderr, "ingest_bench: cannot open the databases\n");
        return 1;
    }

    std::vector<bench_flow_row> flows;
    std::vector<bench_spool_file> files;
    bench_flow_workload(&flows, &files);

    // First run: every AP and SSID is new to the dictionaries.
    int64_t first_rows = 0;
    bench_peak_rss_reset();
    uint64_t first_saves = 0;
    double first_s = daemon_run(files, &first_rows, &first_saves);
    int64_t first_rss = bench_peak_rss_kib();

    std::vector<bench_base_row> rows;
    for (const bench_flow_row &f : flows)
        rows.push_back({&f, tallyd_avp_ap_lookup_name(f.ap_mac.c_str()),
                        tallyd_avp_ssid_lookup_name(f.ssid.c_str()), 1});
    double bare_s = bare_run(bare, rows);
    bench_print(
        {"ingest first run (new APs saved)", first_rows, first_s, bare_s, first_rss, 0, 0.3});
    std::printf("ingest first run: %zu new APs, %llu repository saves\n",
                static_cast<size_t>(tallyd_sys_info.ap_count),
                static_cast<unsigned long long>(first_saves));

    // Steady state: best of several alternating runs of both sides.
    double steady_s = 1e9;
    int64_t steady_rows = 0;
    int64_t rss = 0;
    for (int i = 0; i < kSteadyRounds; ++i) {
        bench_peak_rss_reset();
        steady_s = std::min(steady_s, daemon_run(files, &steady_rows));
        rss = std::max(rss, bench_peak_rss_kib());
        bare_s = std::min(bare_s, bare_run(bare, rows));
    }
    bench_print({"ingest steady", steady_rows, steady_s, bare_s, rss, 1.5, 0.5});
    uint64_t steady_saves = 0;
    daemon_run(files, &steady_rows, &steady_saves);
    std::printf("ingest steady: %llu repository saves per run\n",
                static_cast<unsigned long long>(steady_saves));
    double decode_s = 1e9;
    for (int i = 0; i < kSteadyRounds; ++i) decode_s = std::min(decode_s, decode_only(files));
    std::printf("ingest steady: of which nanopb decoding alone %.3fs; bare + decoding %.3fs\n",
                decode_s, bare_s + decode_s);
    double read_s = 1e9, clear_s = 1e9;
    for (int i = 0; i < kSteadyRounds; ++i) {
        double r = 0, c = 0;
        file_side(files, &r, &c);
        read_s = std::min(read_s, r);
        clear_s = std::min(clear_s, c);
    }
    double floor_s = bare_s + read_s + clear_s;
    std::printf(
        "ingest steady: floor = bare + opening, reading and decoding the files %.3fs + "
        "unlinking them %.3fs = %.3fs, ratio %.2f\n",
        read_s, clear_s, floor_s, floor_s / bare_s);

    tallyd_db_set.close_all();
    tallyd_dict_reset(&tallyd_sys_info);
    return 0;
}
