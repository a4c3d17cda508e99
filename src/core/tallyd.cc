#include "core/tallyd.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "base/log.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "core/instance.h"
#include "core/port_file.h"
#include "core/routes.h"
#include "core/schedule.h"
#include "core/signals.h"
#include "core/sizing.h"
#include "db/db_files.h"
#include "db/db_memory.h"
#include "db/db_set.h"
#include "db/schema.h"
#include "eloop/eloop.h"
#include "entity/dict.h"
#include "events/ap_wlan_seed.h"
#include "ipc/dispatch.h"
#include "support/crashdump.h"

namespace {

// On the controller the system provides /var/run/tac (for the pid file and
// the sockets) and /etc/corvane (where the crash handler makes its dump
// directory); in a fresh sandbox root nobody has made them.
void make_system_dirs() {
    std::error_code ec;
    std::filesystem::create_directories(tallyd_path(TALLYD_RUN_DIR), ec);
    std::filesystem::create_directories(
        std::filesystem::path(tallyd_path(CRASHDUMP_DIR)).parent_path(), ec);
}

// The heap gives freed memory back to the system early: blocks of 64 KB and
// more (the reply of a report, a repository list being parsed) are mapped on
// their own and unmapped when freed, and a free top of the heap larger than
// 64 KB is returned at once. A long-running daemon on a small device should
// not keep the high-water mark of its busiest minute.
void limit_heap() {
    mallopt(M_MMAP_THRESHOLD, 64 * 1024);
    mallopt(M_TRIM_THRESHOLD, 64 * 1024);
}

void start_up() {
    if (tallyd_check_tallyd_existing()) {
        perror("The tallyd is existing!\n");
        exit(-1);
    }
    limit_heap();
    if (nice(19) == -1) {
        // The lowest priority is a courtesy; running without it is fine.
    }
    tallyd_load_state();
    make_system_dirs();
    crashdump_init("tallyd");
    // Without a pid file the daemon still serves; only the next start's
    // instance check has nothing to look at.
    tallyd_write_pid_file(tallyd_path(TALLYD_PID_FILE).c_str());
}

void run_loop() {
    eloop_init(&tallyd_sys_info);
    tallyd_eloop_signals();
    if (tallyd_monitor_iface_init() != 0) {
        perror("Failed to init tac monitor\n");
        return;
    }
    if (tallyd_ctrl_iface_init() != 0) {
        perror("Failed to init ctrl iface\n");
        return;
    }
    tallyd_register_eloop_timer();
    eloop_run();
}

// Only the socket of the last request and four databases are closed; the
// rest (statistic_db, the listening sockets) go with the process, and the
// pid file is removed by the signal handler alone.
void shut_down() {
    eloop_destroy();
    if (tallyd_sys_info.reply_sock != 0) close(tallyd_sys_info.reply_sock);
    tallyd_dict_flush();  // a list whose last save failed gets one more try
    tallyd_db_set.db.close();
    tallyd_db_set.db_flash.close();
    tallyd_db_set.temp_db.close();
    tallyd_db_set.backup_hour_db.close();
    tallyd_log_flush();
}

}  // namespace

void tallyd_load_state() {
    tallyd_init_sys_info(&tallyd_sys_info);
    tallyd_set_platform_limits(&tallyd_sys_info);
    fflush(stdout);
    tallyd_provision_port_file();
    tallyd_set_ap_wlan_seeder(tallyd_get_wlan_from_apgrp);
    tallyd_db_memory_init(tallyd_sys_info.platform_class);
    if (tallyd_init_avp_db(&tallyd_db_set) != 0) perror("Failed to init DB\n");
    tallyd_load_dictionaries(&tallyd_sys_info);
}

int tallyd_main() {
    start_up();
    run_loop();
    shut_down();
    return 0;
}
