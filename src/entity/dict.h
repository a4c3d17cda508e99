// Entity id dictionaries: AP MAC, SSID, AP group and device-type texts to
// small positive ids, persisted in the configuration repository.
//
// Ids never change and are never reused; 0 means none or failure. Mapping
// creates (and saves) an entry for an unknown key; lookups never create.
// Texts returned by the id lookups are owned by the dictionary.
#pragma once

#include <cstdint>

#include "base/sys_info.h"

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

// Start-up: reload all four, in the order SSID, AP, AP group, device info.
void tallyd_load_dictionaries(tallyd_sys_info_t *info);
