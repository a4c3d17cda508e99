// Entity id dictionaries: AP MAC, SSID, AP group and device-type texts to
// small positive ids, persisted in the configuration repository.
//
// Ids never change and are never reused; 0 means none or failure. Mapping
// creates an entry for an unknown key, saved by the next tallyd_dict_flush;
// lookups never create.
// Texts returned by the id lookups are owned by the dictionary. Mapping and
// lookups work on the global tallyd_sys_info; the reloads on the record given.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/sys_info.h"

// One dictionary entry. The first entry of each bucket lives in the bucket
// array itself; further entries of the same bucket are heap-allocated and
// chained behind it in the order they were added. id 0 marks an empty head.
struct tallyd_dict {
    uint32_t id;
    char *name;  // heap copy of the key, strlen + 1 bytes
    tallyd_dict *next;
};

// Bucket array capacities; the table size in use (ssid_max, ap_max,
// apgroup_max, dvcinfo_max of tallyd_sys_info, set by platform sizing) is the
// hash modulus and must lie in 1..capacity, or every operation fails with 0.
inline constexpr int32_t TALLYD_SSID_DICT_CAP = 256;
inline constexpr int32_t TALLYD_AP_DICT_CAP = 1024;
inline constexpr int32_t TALLYD_APGROUP_DICT_CAP = 256;
inline constexpr int32_t TALLYD_DVCINFO_DICT_CAP = 256;

// The most entries a dictionary holds: this many per bucket of its table size
// (platform sizing), 65,536 APs and 16,384 SSIDs on the large platforms,
// 3,584 APs and 3,456 SSIDs on the others, 16,384 AP groups and device types
// everywhere. Entries loaded from the repository all stay (their ids are in
// the tables); beyond the maximum a new key gets 0.
inline constexpr int32_t TALLYD_DICT_MAX_ENTRIES_PER_BUCKET = 64;
int32_t tallyd_dict_max_entries(int32_t table_size);

// Mapping: the key's id, a new one for an unknown key, 0 for a null key, for
// an empty one (logged "tallyd, <list>: an empty key gets no id") and for a
// new key that cannot have one: the dictionary is full, or its counter has
// reached the largest id its type holds (ids never wrap or repeat). Those two
// refusals log one error line a minute per dictionary.
int32_t tallyd_avp_ap_mapping(const char *ap_mac);
int32_t tallyd_avp_ssid_mapping(const char *ssid);
int32_t tallyd_avp_apgroup_mapping(const char *apgroup);
int32_t tallyd_avp_dvcinfo_mapping(const char *dvcinfo);

int32_t tallyd_avp_ap_lookup_name(const char *ap_mac);
int32_t tallyd_avp_ssid_lookup_name(const char *ssid);
int32_t tallyd_avp_apgroup_lookup_name(const char *apgroup);
int32_t tallyd_avp_dvcinfo_lookup_name(const char *dvcinfo);

const char *tallyd_avp_ap_lookup_id(int32_t id);
const char *tallyd_avp_ssid_lookup_id(int32_t id);
const char *tallyd_avp_apgroup_lookup_id(int32_t id);
const char *tallyd_avp_dvcinfo_lookup_id(int32_t id);

void tallyd_update_avp_ap_hash(tallyd_sys_info_t *info);
void tallyd_update_avp_ssid_hash(tallyd_sys_info_t *info);
void tallyd_update_avp_apgroup_hash(tallyd_sys_info_t *info);
void tallyd_update_avp_dvcinfo_hash(tallyd_sys_info_t *info);

// Makes the entries created since the last call durable: every repository
// list that gained entries is saved once. A writer that maps keys calls it
// before it commits (or runs) the statements that store the new ids, so that
// no committed row ever names an id the repository does not hold. 0, or -1
// when a save failed (logged; the next call retries it, the ids stay given).
int tallyd_dict_flush();

// Repository saves of dictionary lists since start (benchmarks).
uint64_t tallyd_dict_save_count();

// Start-up: reload all four, in the order SSID, AP, AP group, device info.
// Each reload empties the dictionary's buckets, reads its repository list
// (absent: stays empty) and raises the counter (ssid_count, ap_count, ...) to
// the highest "id" found; counters never go down. An "id" that is negative or
// beyond the largest its type holds is skipped with an error line naming the
// list's file. Loading costs one step per entry.
void tallyd_load_dictionaries(tallyd_sys_info_t *info);

// Releases every entry of the four dictionaries and clears their counters
// (tests; the daemon keeps its entries for the life of the process).
void tallyd_dict_reset(tallyd_sys_info_t *info);

// One entry of a dictionary as its repository list holds it (for tools).
struct tallyd_dict_stored {
    uint32_t id;      // the id the daemon gives it after a reload (0: skipped)
    int32_t counter;  // the list's "id" attribute
    std::string key;
};

// Reads the list of dictionary name ("ap", "ssid", "apgroup", "dvcinfo") in
// document order, without touching the in-memory dictionaries. AP group and
// device-info ids are composed with their table size of 256 (the same on
// every platform). 0; -1 when the list is absent or malformed; -2 for an
// unknown name.
int tallyd_dict_read_stored(std::string_view name, std::vector<tallyd_dict_stored> *out);
