// Settings in force: a push is written as one change, and the live record is replaced here and by
// the reload alone.
//
//     record ─► radio stage (now, or staged) ─► direct stage ─► what is kept ─► commit ─► live
//     record
//                                                              of changed packages, one reload

#include "wifi/write/writer.h"

#include "core/state.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/address_plan.h"
#include "wifi/write/kept.h"
#include "wifi/write/writer_internal.h"
#include "wired/forwarding.h"
#include "wired/upstream.h"

#include <memory>
#include <new>
#include <unistd.h>

static constexpr const char *PACKAGES[] = {
    "wireless", "network", "dhcp",     "firewall", "u80211d", "prequestd", "igmpproxy",
    "evlog",    "ap_mgr",  "udsplash", "udshape",  "fw_core", "tarn_net",
};

std::span<const char *const> wifi_written_packages()
{
    return PACKAGES;
}

/// What the radios are set to, which differs from the live record while a batch file waits.
static wifi_settings gIn_force;

// ---- the direct stage, beyond radios and networks

static constexpr const char *HOSTAPD_EVENTS[] = {
    "wifi.auth",
    "wifi.assoc",
    "wifi.reassoc",
    "wifi.disassoc",
    "wifi.deauth",
    "wifi.inactive-deauth",
    "wifi.local-deauth",
    "wifi.key-mismatch",
    "wifi.auth-failure",
    "wifi.safe-check-permit",
    "wifi.safe-check-deny",
};

static void write_local(const wifi_settings &settings)
{
    uci_put("u80211d.global.scan_ap_force", !platform_wireless_get_scanning_support());
    uci_put("tarn_net.local.delayed_wifi", settings.delayed);
    uci_put("fw_core.local.node_id", settings.node_id);
    uci_put("tarn_net.local.radio_override", settings.radio_override);
    uci_put("tarn_net.local.override_reason", settings.override_reason);
    uci_clear("evlog.hostapd.events");
    for (const char *event : HOSTAPD_EVENTS)
        uci_add("evlog.hostapd.events", event);
}

static void write_direct_stage(const wifi_write &w)
{
    wifi_write_radios(w);
    wifi_write_networks(w);
    write_local(*w.settings);
    // An SSID that leaves its VLAN is forwarded from now on, not only after the next change of
    // upstream.
    (void)set_ssid_forwarding(w.upstream_state, w.settings);
    set_udsplash_logout_firewall(w.upstream_state, w.settings);
    (void)set_udsplash_ifaces(w.upstream_state, false, w.settings);
}

// ---- the push

bool wifi_packages_can_be_changed()
{
    for (const char *package : PACKAGES)
        if (!ng_uci_is_free(package) || ng_uci_check_readable(package) == NG_UCI_UNREADABLE)
            return false;
    return true;
}

void wifi_make_local_section()
{
    (void)ng_uci_make_package("tarn_net"); // a failure is logged there, and the commit's as well
    if (!ng_uci_exists("tarn_net.local"))
        uci_put("tarn_net.local", "local");
}

static const char *management_mac()
{
    const char *mac = platform_get_management_mac();
    if (!mac)
        log_error("Platform data has no management mac member");
    return mac;
}

static wifi_write begin(const wifi_settings &settings)
{
    wifi_write w{};
    w.settings = &settings;
    w.radios = wifi_radio_count();
    for (int radio = 0; radio < w.radios; radio++)
        w.bands[radio] = wifi_radio_band_type(radio);
    w.lldp_complete = wifi_lldp_negotiation_complete();
    w.address_base =
        wifi_plan_base(settings.node_id, settings.node_id < 0 ? management_mac() : nullptr);
    w.upstream_state = gTarn_net_state.inet_test.upstream_state;
    return w;
}

const char *wifi_at_once_reason(const wifi_settings &settings)
{
    return wifi_write_at_once_reason(begin(settings), gIn_force);
}

static int commit_packages(bool *changed)
{
    if (ng_uci_commit_all(PACKAGES, changed) == 0)
        return 0;
    ng_uci_drop_changes();
    return -1;
}

using record_handle = std::unique_ptr<wifi_settings>;

static int no_memory()
{
    log_error("Failed to allocate memory for the wireless settings");
    return -1;
}

void wifi_radios_now_in_force()
{
    wifi_read_settings(&gIn_force, false);
}

// What a commit makes true is read before it: afterwards another process may lock the packages.

int wifi_commit_radio_settings()
{
    const record_handle next(new (std::nothrow) wifi_settings{});
    if (!next)
        return no_memory();
    wifi_read_settings(next.get(), false);
    if (commit_packages(nullptr) != 0)
        return -1;
    gIn_force = *next;
    return 0;
}

/// Writes and commits; `next` becomes the record to be in force. 0 or -1: then nothing is changed.
static int write_all(const wifi_settings &settings, wifi_settings *next, std::string *held_back,
                     bool *changed)
{
    wifi_make_local_section();
    const wifi_write w = begin(settings);
    if (wifi_write_radio_stage(w, gIn_force, held_back) != 0) {
        ng_uci_drop_changes();
        return -1;
    }
    write_direct_stage(w);
    wifi_keep_settings(settings);
    wifi_read_foreign_settings(next);
    if (commit_packages(changed) == 0)
        return 0;
    if (!held_back->empty())
        (void)unlink(held_back->c_str());
    return -1;
}

int wifid_write_config(const wifi_settings *settings)
{
    if (!settings) {
        log_error("%s is NULL", "parsed_settings");
        return -1;
    }
    if (!wifi_settings_can_be_written(*settings) || !wifi_packages_can_be_changed())
        return -1;
    const record_handle next(new (std::nothrow) wifi_settings(*settings));
    std::string held_back;
    bool changed = false;
    if (!next)
        return no_memory();
    if (write_all(*settings, next.get(), &held_back, &changed) != 0)
        return -1;
    gWifi_live_settings = *next;
    if (held_back.empty()) {
        gIn_force = *next;
        wifi_delayed_drop();
    } else {
        wifi_delayed_stage(held_back.c_str());
    }
    wifi_write_portal_hosts();
    (void)ng_uci_renew_change_context(); // a failure is logged there; the push is in force
    if (changed) {
        (void)run_reload_config();
        wifi_radio_list_ifaces();
    }
    wifid_apply_bridges();
    return 0;
}
