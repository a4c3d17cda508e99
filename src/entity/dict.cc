// The four dictionaries, their repository lists, mapping and reload.
#include "entity/dict.h"

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

using info_t = tallyd_sys_info_t;

// Which dictionaries answer 0 for an empty key differs on purpose: an empty
// AP MAC or SSID is never found, so mapping one makes a new entry every
// time, while an empty device-type text is refused outright.
const dict_kind kSsid{"avpssid-list",
                      "avpssid",
                      "ssid",
                      "tallyd_add_avpssid_xml",
                      "tallyd_update_avp_ssid_hash",
                      "tallyd, failed to malloc node ssid\n",
                      "tallyd, failed to add ssid node\n",
                      false,
                      true,
                      false,
                      TALLYD_SSID_DICT_CAP,
                      &info_t::ssid_max,
                      &info_t::ssid_count,
                      &info_t::ssid_dict,
                      ssid_buckets};
const dict_kind kAp{"avpap-list",
                    "avpap",
                    "ap",
                    "tallyd_add_avpap_xml",
                    "tallyd_update_avp_ap_hash",
                    "tallyd, failed to malloc ap\n",
                    "tallyd, failed to add ap node\n",
                    false,
                    true,
                    false,
                    TALLYD_AP_DICT_CAP,
                    &info_t::ap_max,
                    &info_t::ap_count,
                    &info_t::ap_dict,
                    ap_buckets};
const dict_kind kApgroup{"avpapgroup-list",
                         "avpapgroup",
                         "apgroup",
                         "tallyd_add_apgroup_xml",
                         "tallyd_update_avp_apgroup_hash",
                         "tallyd, failed to malloc node apgroup\n",
                         "tallyd, failed to add apgroup node\n",
                         true,
                         false,
                         false,
                         TALLYD_APGROUP_DICT_CAP,
                         &info_t::apgroup_max,
                         &info_t::apgroup_count,
                         &info_t::apgroup_dict,
                         apgroup_buckets};
const dict_kind kDvcinfo{"avpdvcinfo-list",
                         "avpdvcinfo",
                         "dvcinfo",
                         "tallyd_add_dvcinfo_xml",
                         "tallyd_update_avp_dvcinfo_hash",
                         "tallyd, failed to malloc node dvcinfo\n",
                         "tallyd, failed to add dvcinfo node\n",
                         true,
                         false,
                         true,
                         TALLYD_DVCINFO_DICT_CAP,
                         &info_t::dvcinfo_max,
                         &info_t::dvcinfo_count,
                         &info_t::dvcinfo_dict,
                         dvcinfo_buckets};

int32_t mapping(const dict_kind &k, const char *key) {
    tallyd_sys_info_t *info = &tallyd_sys_info;
    if (!key || (k.refuse_empty_key && key[0] == '\0')) return 0;
    if (uint32_t id = dict_find_name(k, info, key)) return static_cast<int32_t>(id);

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
// wins lookups); a child with id 0 is read but not inserted.
void reload(const dict_kind &k, tallyd_sys_info_t *info) {
    dict_clear(k, info, info->*k.size);
    xconf_ptr list(xGetConfImpl(k.load_tag, __LINE__, k.list, 0));
    for (xnode *c = xGetFirstChild(list.get()); c; c = xGetNextSibling(c)) {
        int32_t id = xGetAttrInt(c, "id", 0);
        dict_insert(k, info, xGetAttrString(c, k.key_attr, ""), id);
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
        out->push_back({dict_id(*k, counter, size, tallyd_str_hash(key) % size), counter, key});
    }
    return 0;
}
