// What the files of the settings writer share. Each writes the options of one noun as save actions
// of the change context; push.cpp commits them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "wifi/settings/record.h"
#include "wifi/write/commit.h"
#include "wifi/write/writer.h"

/// One run of the writer.
struct wifi_write {
    const wifi_settings *settings;
    int radios;                 ///< in use
    int bands[WIFI_RADIOS_MAX]; ///< band type of each, or -1
    bool lldp_complete;         ///< interfaces may be on
    uint32_t address_base;      ///< of the address plan
    uint32_t upstream_state;    ///< tarn_net_upstream
    std::vector<std::string> access_lists[WIFI_SSIDS];
};

bool wifi_write_is_scanning(const wifi_write &w, int radio);
/// The radio may have to give way to radar.
bool wifi_write_has_dfs(const wifi_write &w, int radio);
/// SSID `ssid` (1..4) is to be on the air on the radio.
bool wifi_write_ssid_is_active(const wifi_write &w, int radio, int ssid);

/// "wireless.ap0_1" and the like.
std::string wifi_ap_section(int radio, int ssid);
/// The access list's entries.
std::vector<std::string> wifi_acl_entries(const wifi_ssid_settings &settings);
/// PREFIX followed by the number and SUFFIX.
std::string numbered(const char *prefix, int number, const char *suffix = "");

// The stages, in order

/// Why the radio stage is applied at once, as a half-sentence; null when it has to wait.
const char *wifi_write_at_once_reason(const wifi_write &w, const wifi_air_settings &in_force);
/// Writes what disturbs radios and mesh to a batch file and applies it (uncommitted), or leaves it,
/// its path in `held_back`, for when the push is committed. 0, or -1 (logged). `in_force` is what
/// the radios are set to.
int wifid_write_delayed_config(const wifi_write &w, const wifi_air_settings &in_force,
                               std::string *held_back);
/// Radios, access points, orphan interfaces, presence.
void wifi_write_radios(const wifi_write &w);
/// Addresses, DHCP, DNS, forwarding and portal of the mesh gateway and every SSID.
void wifi_write_networks(const wifi_write &w);
/// DNS instance of an SSID.
void wifi_write_dns(const wifi_write &w, int ssid);
/// The access list of an SSID on every radio.
void wifi_write_acl_list_config(const wifi_write &w, int ssid);
/// The access point manager's settings of an SSID.
void wifi_write_ap_mgr_per_ssid_config(const wifi_write &w, int ssid);
