// Committing what a push changed: its packages as one, and with them what the radios are set to.
//
// What a commit makes true is read before it: afterwards another process may lock the packages.

#include "wifi/write/commit.h"

#include <cstring>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/write/fields_uci.h"

constexpr const char *PACKAGES[] = {
    "wireless", "network", "dhcp",     "firewall", "u80211d", "prequestd", "igmpproxy",
    "evlog",    "ap_mgr",  "udsplash", "udshape",  "fw_core", "tarn_net",
};

std::span<const char *const> wifi_written_packages()
{
    return PACKAGES;
}

static wifi_air_settings gIn_force;

const wifi_air_settings &wifi_in_force()
{
    return gIn_force;
}

static wifi_air_settings on_air(const wifi_settings &from)
{
    wifi_air_settings to{};
    to.reg_outdoor = from.reg_outdoor;
    memcpy(to.reg_country, from.reg_country, sizeof to.reg_country);
    memcpy(to.radios, from.radios, sizeof to.radios);
    memcpy(to.mesh_protocol, from.mesh_protocol, sizeof to.mesh_protocol);
    to.hop_penalty = from.hop_penalty;
    to.gw_stickiness = from.gw_stickiness;
    to.bridge_loop_avoidance = from.bridge_loop_avoidance;
    memcpy(to.mesh_key, from.mesh_key, sizeof to.mesh_key);
    to.antenna_type = from.antenna_type;
    return to;
}

static wifi_air_settings read_on_air()
{
    static wifi_settings room; // large, but only what is read is ever written to
    wifi_read_staged_settings(&room);
    return on_air(room);
}

void wifi_in_force_set(const wifi_settings &settings)
{
    gIn_force = on_air(settings);
}

void wifi_radios_now_in_force()
{
    gIn_force = read_on_air();
}

bool wifi_packages_can_be_changed()
{
    for (const char *package : PACKAGES)
        if (!ng_uci_is_free(package) || ng_uci_check_readable(package) == NG_UCI_UNREADABLE)
            return false;
    return true;
}

int wifi_commit_packages(bool *changed)
{
    if (ng_uci_commit_all(PACKAGES, changed) == 0)
        return 0;
    ng_uci_drop_changes();
    return -1;
}

int wifi_commit_radio_settings()
{
    const wifi_air_settings next = read_on_air();
    if (wifi_commit_packages(nullptr) != 0)
        return -1;
    gIn_force = next;
    return 0;
}
