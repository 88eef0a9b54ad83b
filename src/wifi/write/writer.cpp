// One run of the writer: everything a push says, as save actions of the change context. Nothing is
// committed here.
//
//     record ─► radio stage (now, or into a batch file) ─► direct stage ─► what is kept

#include "wifi/write/writer.h"

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/address_plan.h"
#include "wifi/write/commit.h"
#include "wifi/write/fields_uci.h"
#include "wifi/write/portal.h"
#include "wifi/write/write_internal.h"

// ---- the direct stage, beyond radios and networks

constexpr const char *HOSTAPD_EVENTS[] = {
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
    ng_uci_put("u80211d.global.scan_ap_force", !platform_wireless_get_scanning_support());
    const wifi_part node = wifi_node_part(settings, -1, -1);
    fields_write(node, "tarn_net.local");
    fields_write(node, "fw_core.local");
    ng_uci_clear("evlog.hostapd.events");
    for (const char *event : HOSTAPD_EVENTS)
        ng_uci_add("evlog.hostapd.events", event);
}

static void write_direct_stage(const wifi_write &w)
{
    wifi_write_radios(w);
    wifi_write_networks(w);
    write_local(*w.settings);
    // An SSID that leaves its VLAN is forwarded from now on, not only after the next change of
    // upstream.
    (void)gWifi_requests.forward_ssids(w.settings);
    set_udsplash_logout_firewall(w.upstream_state, w.settings);
    (void)set_udsplash_ifaces(w.upstream_state, false, w.settings);
}

// ---- one run

void wifi_make_local_section()
{
    (void)ng_uci_make_package("tarn_net"); // a failure is logged there, and the commit's as well
    if (!ng_uci_exists("tarn_net.local"))
        ng_uci_put("tarn_net.local", "local");
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
    w.upstream_state = node_state().inet_test.upstream_state;
    for (int i = 0; i < WIFI_SSIDS; i++)
        w.access_lists[i] = wifi_acl_entries(settings.ssids[i]);
    return w;
}

const char *wifi_at_once_reason(const wifi_settings &settings)
{
    return wifi_write_at_once_reason(begin(settings), wifi_in_force());
}

int wifi_write_settings(const wifi_settings &settings, std::string *held_back)
{
    wifi_make_local_section();
    const wifi_write w = begin(settings);
    if (wifid_write_delayed_config(w, wifi_in_force(), held_back) != 0) {
        ng_uci_drop_changes();
        return -1;
    }
    write_direct_stage(w);
    wifi_keep_settings(settings);
    if (!w.lldp_complete)
        wifi_check_enables(); // what is written off now comes on as soon as it may
    return 0;
}
