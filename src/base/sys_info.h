// tallyd_sys_info: the daemon-wide settings record.
//
// One record for the whole process, zeroed at start and filled by start-up
// (platform sizing, ARC flag), the dictionaries (counts), the dispatcher (the
// request being served) and the periodic tasks (stamps). It is also the event
// loop's user data. Every number is a 32-bit field whatever the host; pointers to
// the dictionaries' own tables are owned by the entity module.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>

struct tallyd_dict;

struct tallyd_sys_info_t {
    // The request being served (set by the control-socket dispatcher).
    const sockaddr_un *peer_addr;
    socklen_t *peer_addr_len;
    int32_t reply_sock;

    // Dictionary capacities (platform sizing) and entry counts.
    int32_t ssid_max;
    int32_t ssid_count;
    int32_t ap_max;
    int32_t ap_count;
    int32_t apgroup_max;
    int32_t apgroup_count;
    int32_t dvcinfo_max;
    int32_t dvcinfo_count;

    // Size limits in bytes of db and db_flash.
    int32_t db_max_size;
    int32_t db_flash_max_size;

    int32_t platform_class;      // 0 unknown, 1, 2 or 3
    int32_t platform_row_limit;  // 7500 or 25000; kept though nothing reads it

    int32_t qpx_push;  // ARC qpx push flag from the configuration repository

    // Dictionary bucket arrays (entity module).
    tallyd_dict *ssid_dict;
    tallyd_dict *ap_dict;
    tallyd_dict *apgroup_dict;
    tallyd_dict *dvcinfo_dict;

    // Stamps of the periodic tasks (seconds since 1970).
    uint32_t hour_stamp;
    uint32_t day_stamp;
    uint32_t last_backup_time;  // set by the backup task, cleared by the day task
    uint32_t last_statis_time;  // last run of the statistics purge task
};

extern tallyd_sys_info_t tallyd_sys_info;
