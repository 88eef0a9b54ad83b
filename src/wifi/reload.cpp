// Rebuilds the live record from UCI: so far what the upstream decision and the forwarding rules
// read of it.
#include <cstdio>
#include <memory>
#include <new>
#include <string>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

/// False also for an option that cannot be read.
static bool read_flag(const std::string &option)
{
    int value = 0;
    (void)ng_uci_get_int(&value, "%s", option.c_str());
    return value != 0;
}

template <size_t N>
static void read_text(char (&out)[N], const char *option)
{
    std::string text;
    (void)ng_uci_get_string(text, "%s", option);
    snprintf(out, N, "%s", text.c_str());
}

static void read_ssid(wifi_ssid_settings *ssid, int number)
{
    const std::string section = "network.ssid" + std::to_string(number);
    ssid->enable = read_flag(section + ".config_enable");
    ssid->bridge_to_lan = read_flag(section + ".bridge_to_lan");
    ssid->vlan_tag = -1;
    (void)ng_uci_get_int(&ssid->vlan_tag, "%s_vlan.vid", section.c_str());
}

static void read_radio(wifi_radio_settings *radio, int index)
{
    const std::string number = std::to_string(index);
    radio->enable = read_flag("wireless.radio" + number + ".enable");
    radio->mesh_enable = read_flag("wireless.mesh" + number + ".config_enable");
}

int wifi_reload_config(bool)
{
    const std::unique_ptr<wifi_settings> fresh(new (std::nothrow) wifi_settings{});
    if (!fresh) {
        log_error("Failed to allocate memory for the wireless settings");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    for (int i = 0; i < WIFI_SSIDS; i++)
        read_ssid(&fresh->ssids[i], i + 1);
    const int radios = wifi_radio_count();
    for (int i = 0; i < radios; i++)
        read_radio(&fresh->radios[i], i);
    read_text(fresh->radio_override, "tarn_net.local.radio_override");
    read_text(fresh->override_reason, "tarn_net.local.override_reason");
    gWifi_live_settings = *fresh;
    return UBUS_STATUS_OK;
}

int wifi_reload_config_cb(ubus_context *, blob_attr *, blob_buf *)
{
    return wifi_reload_config(false);
}
