// The four dictionaries, their repository lists, mapping and reload.
#include "entity/dict.h"

#include "base/clock.h"
#include "base/log.h"
#include "entity/dict_save.h"
#include "entity/dict_table.h"
#include "entity/text.h"
#include "platform/xrepo.h"

namespace {

tallyd_dict ssid_buckets[TALLYD_SSID_DICT_CAP];
tallyd_dict ap_buckets[TALLYD_AP_DICT_CAP];
tallyd_dict apgroup_buckets[TALLYD_APGROUP_DICT_CAP];
tallyd_dict dvcinfo_buckets[TALLYD_DVCINFO_DICT_CAP];
tallyd_dict *ssid_tails[TALLYD_SSID_DICT_CAP];
tallyd_dict *ap_tails[TALLYD_AP_DICT_CAP];
tallyd_dict *apgroup_tails[TALLYD_APGROUP_DICT_CAP];
tallyd_dict *dvcinfo_tails[TALLYD_DVCINFO_DICT_CAP];
dict_extra ssid_extra{ssid_tails, 0, 0, false};
dict_extra ap_extra{ap_tails, 0, 0, false};
dict_extra apgroup_extra{apgroup_tails, 0, 0, false};
dict_extra dvcinfo_extra{dvcinfo_tails, 0, 0, false};

using info_t = tallyd_sys_info_t;

constexpr uint32_t kRefusalLogPeriod = 60;  // seconds between "refused" lines

// An empty key names nothing: every mapping refuses it, and the AP and SSID
// lookups answer 0 for it even when an old list holds such entries.
const dict_kind kSsid{"avpssid-list",
                      "avpssid",
                      "ssid",
                      "tallyd_add_avpssid_xml",
                      "tallyd_update_avp_ssid_hash",
                      "tallyd, failed to malloc node ssid\n",
                      "tallyd, failed to add ssid node\n",
                      false,
                      true,
                      TALLYD_SSID_DICT_CAP,
                      &info_t::ssid_max,
                      &info_t::ssid_count,
                      &info_t::ssid_dict,
                      ssid_buckets,
                      &ssid_extra};

const dict_kind kAp{"avpap-list",
                    "avpap",
                    "ap",
                    "tallyd_add_avpap_xml",
                    "tallyd_update_avp_ap_hash",
                    "tallyd, failed to malloc ap\n",
                    "tallyd, failed to add ap node\n",
                    false,
                    true,
                    TALLYD_AP_DICT_CAP,
                    &info_t::ap_max,
                    &info_t::ap_count,
                    &info_t::ap_dict,
                    ap_buckets,
                    &ap_extra};
const dict_kind kApgroup{"avpapgroup-list",
                         "avpapgroup",
                         "apgroup",
                         "tallyd_add_apgroup_xml",
                         "tallyd_update_avp_apgroup_hash",
                         "tallyd, failed to malloc node apgroup\n",
                         "tallyd, failed to add apgroup node\n",
                         true,
                         false,
                         TALLYD_APGROUP_DICT_CAP,
                         &info_t::apgroup_max,
                         &info_t::apgroup_count,
                         &info_t::apgroup_dict,
                         apgroup_buckets,
                         &apgroup_extra};
const dict_kind kDvcinfo{"avpdvcinfo-list",
                         "avpdvcinfo",
                         "dvcinfo",
                         "tallyd_add_dvcinfo_xml",
                         "tallyd_update_avp_dvcinfo_hash",
                         "tallyd, failed to malloc node dvcinfo\n",
                         "tallyd, failed to add dvcinfo node\n",
                         true,
                         false,
                         TALLYD_DVCINFO_DICT_CAP,
                         &info_t::dvcinfo_max,
                         &info_t::dvcinfo_count,
                         &info_t::dvcinfo_dict,
                         dvcinfo_buckets,
                         &dvcinfo_extra};

// Whether a new key must go without an id: the dictionary holds its maximum
// of entries, or its counter has reached the last id it may give. Logged at
// most once a minute per dictionary, so that a peer sending new keys without
// end cannot fill the log. An unusable table size is left to the insert,
// which fails as it always has.
bool new_key_refused(const dict_kind &k, const tallyd_sys_info_t *info) {
    const uint32_t size = dict_usable_size(k, info);
    if (size == 0) return false;
    const int32_t limit = tallyd_dict_max_entries(static_cast<int32_t>(size));
    const bool full = k.extra->entries >= limit;
    const bool spent = info->*k.last_id >= dict_counter_max(k, size);
    if (!full && !spent) return false;

    dict_extra &x = *k.extra;
    const uint32_t now = tallyd_now();
    if (!x.refusal_logged || now - x.refusal_logged_at >= kRefusalLogPeriod) {
        x.refusal_logged = true;
        x.refusal_logged_at = now;
        if (full)
            tallyd_log(LOG_ERR, "tallyd, %s holds its maximum of %d entries, new keys refused\n",
                       k.list, limit);
        else
            tallyd_log(LOG_ERR, "tallyd, %s has given its last id (counter %d), new keys refused\n",
                       k.list, info->*k.last_id);
    }
    return true;
}

int32_t mapping(const dict_kind &k, const char *key) {
    tallyd_sys_info_t *info = &tallyd_sys_info;
    if (!key) return 0;
    if (key[0] == '\0') {
        tallyd_log(LOG_ERR, "tallyd, %s: an empty key gets no id\n", k.list);
        return 0;
    }
    if (uint32_t id = dict_find_name(k, info, key)) return static_cast<int32_t>(id);
    if (new_key_refused(k, info)) return 0;

    int32_t &counter = info->*k.last_id;
    counter = static_cast<int32_t>(static_cast<uint32_t>(counter) + 1);
    uint32_t id = dict_insert(k, info, key, counter);
    if (id == 0) {
        counter = static_cast<int32_t>(static_cast<uint32_t>(counter) - 1);
        tallyd_log(LOG_ERR, "%s", k.add_fail);
        return 0;
    }
    // Saved with the other entries of this message or run, by tallyd_dict_flush.
    dict_save_queue(k, key, counter);
    return static_cast<int32_t>(id);
}

// Duplicate keys in the list become duplicate entries (the first one read
// wins lookups); a child with id 0 is read but not inserted. An id outside
// what the counter may reach (negative, or past the last id of its type) is
// skipped with a line naming the file: taking it would hand out wrapped or
// repeated ids later.
void reload(const dict_kind &k, tallyd_sys_info_t *info) {
    dict_clear(k, info, info->*k.size);
    xconf_ptr list(xGetConfImpl(k.load_tag, __LINE__, k.list, 0));
    const uint32_t size = dict_usable_size(k, info);
    for (xnode *c = xGetFirstChild(list.get()); c; c = xGetNextSibling(c)) {
        const char *id_text = xGetAttrString(c, "id", "");
        const char *key = xGetAttrString(c, k.key_attr, "");
        int32_t id;
        if (!dict_parse_counter(k, size, id_text, &id)) {
            tallyd_log(LOG_ERR, "tallyd, %s: %s=\"%s\" has id %s, out of range, skipped\n",
                       xrepo_list_path(k.list).c_str(), k.key_attr, key, id_text);
            continue;
        }
        dict_insert(k, info, key, id);
        if (id > info->*k.last_id) info->*k.last_id = id;
    }
}

int32_t find_name(const dict_kind &k, const char *key) {
    return static_cast<int32_t>(dict_find_name(k, &tallyd_sys_info, key));
}

const char *find_id(const dict_kind &k, int32_t id) {
    return dict_find_id(k, &tallyd_sys_info, static_cast<uint32_t>(id));
}

}  // namespace

int32_t tallyd_dict_max_entries(int32_t table_size) {
    return table_size > 0 ? table_size * TALLYD_DICT_MAX_ENTRIES_PER_BUCKET : 0;
}

int32_t tallyd_avp_ap_mapping(const char *ap_mac) {
    return mapping(kAp, ap_mac);
}
int32_t tallyd_avp_ssid_mapping(const char *ssid) {
    return mapping(kSsid, ssid);
}
int32_t tallyd_avp_apgroup_mapping(const char *apgroup) {
    return mapping(kApgroup, apgroup);
}
int32_t tallyd_avp_dvcinfo_mapping(const char *dvcinfo) {
    return mapping(kDvcinfo, dvcinfo);
}

int32_t tallyd_avp_ap_lookup_name(const char *ap_mac) {
    return find_name(kAp, ap_mac);
}
int32_t tallyd_avp_ssid_lookup_name(const char *ssid) {
    return find_name(kSsid, ssid);
}
int32_t tallyd_avp_apgroup_lookup_name(const char *apgroup) {
    return find_name(kApgroup, apgroup);
}
int32_t tallyd_avp_dvcinfo_lookup_name(const char *dvcinfo) {
    return find_name(kDvcinfo, dvcinfo);
}

const char *tallyd_avp_ap_lookup_id(int32_t id) {
    return find_id(kAp, id);
}
const char *tallyd_avp_ssid_lookup_id(int32_t id) {
    return find_id(kSsid, id);
}
const char *tallyd_avp_apgroup_lookup_id(int32_t id) {
    return find_id(kApgroup, id);
}
const char *tallyd_avp_dvcinfo_lookup_id(int32_t id) {
    return find_id(kDvcinfo, id);
}

void tallyd_update_avp_ap_hash(tallyd_sys_info_t *info) {
    reload(kAp, info);
}
void tallyd_update_avp_ssid_hash(tallyd_sys_info_t *info) {
    reload(kSsid, info);
}
void tallyd_update_avp_apgroup_hash(tallyd_sys_info_t *info) {
    reload(kApgroup, info);
}
void tallyd_update_avp_dvcinfo_hash(tallyd_sys_info_t *info) {
    reload(kDvcinfo, info);
}

int tallyd_dict_flush() {
    int rc = 0;
    for (const dict_kind *k : {&kSsid, &kAp, &kApgroup, &kDvcinfo})
        if (dict_save_flush(*k) != 0) rc = -1;
    return rc;
}

uint64_t tallyd_dict_save_count() {
    return dict_save_count();
}

void tallyd_load_dictionaries(tallyd_sys_info_t *info) {
    tallyd_update_avp_ssid_hash(info);
    tallyd_update_avp_ap_hash(info);
    tallyd_update_avp_apgroup_hash(info);
    tallyd_update_avp_dvcinfo_hash(info);
}

void tallyd_dict_reset(tallyd_sys_info_t *info) {
    for (const dict_kind *k : {&kSsid, &kAp, &kApgroup, &kDvcinfo}) {
        dict_clear(*k, info, k->capacity);
        dict_save_drop(*k);
        info->*k->last_id = 0;
        k->extra->refusal_logged = false;
    }
}

int tallyd_dict_read_stored(std::string_view name, std::vector<tallyd_dict_stored> *out) {
    static const std::pair<std::string_view, const dict_kind *> kinds[] = {
        {"ap", &kAp}, {"ssid", &kSsid}, {"apgroup", &kApgroup}, {"dvcinfo", &kDvcinfo}};
    const dict_kind *k = nullptr;
    for (const auto &[n, kind] : kinds)
        if (n == name) k = kind;
    if (!k) return -2;
    xconf_ptr list(xGetConfImpl("tallyd_dict_read_stored", __LINE__, k->list, 0));
    if (!list) return -1;
    out->clear();
    const uint32_t size = static_cast<uint32_t>(k->capacity);
    for (xnode *c = xGetFirstChild(list.get()); c; c = xGetNextSibling(c)) {
        int32_t counter = xGetAttrInt(c, "id", 0);
        const char *key = xGetAttrString(c, k->key_attr, "");
        int32_t usable;
        if (!dict_parse_counter(*k, size, xGetAttrString(c, "id", ""), &usable)) usable = 0;
        out->push_back({dict_id(*k, usable, size, tallyd_str_hash(key) % size), counter, key});
    }
    return 0;
}
