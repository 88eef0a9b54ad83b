// The access point manager's view of an SSID: what it steers and tells its clients by.
#include "platform/zu/ng_uci.h"
#include "wifi/write/fields_uci.h"
#include "wifi/write/write_internal.h"

void wifi_write_ap_mgr_per_ssid_config(const wifi_write &w, int ssid)
{
    ng_uci_put(numbered("ap_mgr.ssid", ssid), "ssid");
    fields_write(wifi_ssid_part(*w.settings, ssid, -1), "ap_mgr.ssid%d");
}
