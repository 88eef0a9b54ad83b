// The access point manager's view of an SSID: what it steers and tells its clients by.
#include "wifi/write/writer_internal.h"

void wifi_write_ap_mgr_per_ssid_config(const wifi_write &w, int ssid)
{
    const wifi_ssid_settings &settings = w.settings->ssids[ssid - 1];
    const std::string section = numbered("ap_mgr.ssid", ssid);
    uci_put(section, "ssid");
    uci_put(section + ".enable", settings.enable);
    uci_put(section + ".ssid", settings.ssid);
    uci_put(section + ".band_steering", settings.band_steering);
    uci_put(section + ".roaming_80211v", settings.roaming_80211v);
    uci_put(section + ".neigh_report", settings.neigh_report);
    uci_put(section + ".client_isolate", settings.client_isolate);
}
