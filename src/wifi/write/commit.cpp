// Committing what a push changed: its packages as one, and with them what the radios are set to.
//
// What a commit makes true is read before it: afterwards another process may lock the packages.

#include "wifi/write/commit.h"

#include <memory>
#include <new>

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

static wifi_settings gIn_force;

const wifi_settings &wifi_in_force()
{
    return gIn_force;
}

void wifi_in_force_set(const wifi_settings &settings)
{
    gIn_force = settings;
}

void wifi_radios_now_in_force()
{
    wifi_read_settings(&gIn_force, false);
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
    const std::unique_ptr<wifi_settings> next(new (std::nothrow) wifi_settings{});
    if (!next) {
        log_error("Failed to allocate memory for the wireless settings");
        return -1;
    }
    wifi_read_settings(next.get(), false);
    if (wifi_commit_packages(nullptr) != 0)
        return -1;
    gIn_force = *next;
    return 0;
}
