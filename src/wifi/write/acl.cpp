// Access lists of the SSIDs, on every radio whether the SSID is active there or not.
#include <unordered_set>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/write/write_internal.h"

using mac_set = std::unordered_set<std::string>;

std::vector<std::string> wifi_acl_entries(const wifi_ssid_settings &settings)
{
    std::vector<std::string> entries;
    for (const char *mac : settings.acl_list) {
        if (!mac[0])
            break;
        entries.emplace_back(mac);
    }
    return entries;
}

/// Takes out what has vanished and adds what is new; what stays keeps its place.
static void reconcile(const std::string &list, const std::vector<std::string> &wanted)
{
    if (ng_uci_is_list(list, wanted))
        return;
    const std::vector<std::string> before = ng_uci_items(list);
    const mac_set all(wanted.begin(), wanted.end());
    mac_set there;
    std::vector<std::string> after;
    for (const std::string &mac : before)
        if (all.contains(mac) && there.insert(mac).second)
            after.push_back(mac);
    for (const std::string &mac : wanted)
        if (there.insert(mac).second)
            after.push_back(mac);
    ng_uci_put_list(list, after);
}

void wifi_write_acl_list_config(const wifi_write &w, int ssid)
{
    const std::vector<std::string> &wanted = w.access_lists[ssid - 1];
    if (wanted.empty())
        log_notice("No valid ACL for ssid %d", ssid - 1); // counted from 0 here
    for (int radio = 0; radio < w.radios; radio++) {
        if (wifi_write_is_scanning(w, radio))
            continue; // it has no access points
        const std::string ap = wifi_ap_section(radio, ssid);
        if (wanted.empty())
            ng_uci_clear(ap + ".macfilter");
        else
            ng_uci_put(ap + ".macfilter", "allow");
        reconcile(ap + ".maclist", wanted);
    }
}
