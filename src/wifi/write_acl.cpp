// Access lists of the SSIDs, on every radio whether the SSID is active there or not.
#include "platform/zu/log.h"
#include "wifi/write_internal.h"

#include <unordered_set>

using mac_set = std::unordered_set<std::string>;

static mac_set listed(const wifi_ssid_settings &settings)
{
    mac_set macs;
    for (const char *mac : settings.acl_list) {
        if (!mac[0])
            break;
        macs.insert(mac);
    }
    return macs;
}

/// Takes out what has vanished and adds what is new; what stays keeps its place.
static void reconcile(const std::string &list, const wifi_ssid_settings &settings,
                      const mac_set &wanted)
{
    mac_set there;
    for (const std::string &mac : uci_items(list)) {
        if (!wanted.contains(mac))
            uci_remove(list, mac);
        there.insert(mac);
    }
    for (const char *mac : settings.acl_list) {
        if (!mac[0])
            break;
        if (there.insert(mac).second)
            uci_add(list, mac);
    }
}

void wifi_write_acl_list_config(const wifi_write &w, int ssid)
{
    const wifi_ssid_settings &settings = w.settings->ssids[ssid - 1];
    const mac_set wanted = listed(settings);
    if (wanted.empty())
        log_notice("No valid ACL for ssid %d", ssid - 1);
    for (int radio = 0; radio < w.radios; radio++) {
        if (wifi_write_is_scanning(w, radio))
            continue; // it has no access points
        const std::string ap = wifi_ap_section(radio, ssid);
        uci_clear(ap + ".macfilter");
        if (!wanted.empty())
            uci_put(ap + ".macfilter", "allow");
        reconcile(ap + ".maclist", settings, wanted);
    }
}
