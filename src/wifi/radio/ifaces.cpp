// Which interfaces are scanned and surveyed: a question to the configuration and the platform.
#include <cstdio>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"
#include "wifi/wifi.h"

constexpr int LIST_AGAIN_MS = 10000;

static int first_access_point(int radio)
{
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        int enable = 0;
        if (ng_uci_get_int(&enable, "wireless.ap%d_%d.config_enable", radio, ssid) == 0 && enable)
            return ssid;
    }
    return 0;
}

/// A radio with an access point is surveyed there, and scanned there when the platform has no radio
/// that scans beside the others.
static void list_radio(int radio, int ssid, bool scan_access_points)
{
    if (wifi_radio_band_type(radio) == WIFI_BAND_SCANNING) {
        add_scanning_iface("scan", false);
        return;
    }
    if (ssid == 0)
        return;
    char ifname[16];
    snprintf(ifname, sizeof ifname, "ap%d_%d", radio, ssid);
    if (scan_access_points)
        add_scanning_iface(ifname, true);
    update_survey_list_by_radio_idx(radio, ifname);
}

/// Said by those who read the settings; this is asked besides.
static bool is_readable()
{
    const zu_log_repetition quiet;
    return ng_uci_check_readable("wireless") != NG_UCI_UNREADABLE;
}

static void list_ifaces_cb(uloop_timeout *)
{
    wifi_radio_list_ifaces();
}

static uloop_timeout gAgain = {.list = {}, .pending = false, .cb = list_ifaces_cb, .time = {}};

wifi_first_ssids wifi_radio_first_ssids()
{
    wifi_first_ssids first_ssids{};
    for (int radio = 0; radio < wifi_radio_count(); radio++)
        first_ssids[static_cast<size_t>(radio)] = first_access_point(radio);
    return first_ssids;
}

void wifi_radio_list_ifaces(const wifi_first_ssids &first_ssids)
{
    uloop_timeout_cancel(&gAgain);
    const bool was_scanning = wifi_scan_in_flight();
    wifi_flush_scanning_ifaces();
    const bool scan_access_points = !platform_wireless_get_scanning_support();
    const int radios = wifi_radio_count();
    for (int radio = 0; radio < radios; radio++)
        list_radio(radio, first_ssids[static_cast<size_t>(radio)], scan_access_points);
    if (was_scanning)
        wifi_scan_resume();
}

void wifi_radio_list_ifaces()
{
    if (is_readable()) {
        wifi_radio_list_ifaces(wifi_radio_first_ssids());
        return;
    }
    // The lists stay as they are.
    log_info("The interfaces to scan and to survey cannot be read now");
    uloop_timeout_set(&gAgain, LIST_AGAIN_MS);
}

void wifi_radio_start()
{
    wifi_init_scan_state();
    wifi_init_survey_state();
    restart_dfs_event_listener();
}
