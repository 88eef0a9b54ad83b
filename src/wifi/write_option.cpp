// Single options, and the questions that decide several of them.
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "wifi/write_internal.h"

static void act(ng_uci_action action, const std::string &name, const char *value)
{
    (void)ng_uci_save_action_ctx(ng_uci_change_context(), action, value, "%s", name.c_str());
}

void uci_put(const std::string &name, const char *value)
{
    act(uci_set_string, name, value);
}

void uci_put(const std::string &name, int value)
{
    act(uci_set_string, name, std::to_string(value).c_str());
}

void uci_clear(const std::string &name)
{
    act(ng_uci_delete_option, name, nullptr);
}

void uci_add(const std::string &list, const std::string &value)
{
    act(ng_uci_add_list, list, value.c_str());
}

void uci_remove(const std::string &list, const std::string &value)
{
    act(ng_uci_del_list, list, value.c_str());
}

void uci_put_list(const std::string &name, const std::vector<std::string> &items)
{
    (void)ng_uci_set_list(items, name.c_str());
}

std::vector<std::string> uci_items(const std::string &name)
{
    std::vector<std::string> items;
    const auto take = [](const char *value, void *priv) {
        static_cast<std::vector<std::string> *>(priv)->emplace_back(value);
    };
    (void)_ng_uci_get_val_cb(name.c_str(), take, &items);
    return items;
}

std::string numbered(const char *prefix, int number, const char *suffix)
{
    return prefix + std::to_string(number) + suffix;
}

std::string wifi_ap_section(int radio, int ssid)
{
    return numbered("wireless.ap", radio, "_") + std::to_string(ssid);
}

bool wifi_write_is_scanning(const wifi_write &w, int radio)
{
    return w.bands[radio] == WIFI_BAND_SCANNING;
}

bool wifi_write_has_dfs(const wifi_write &w, int radio)
{
    const int band = w.bands[radio];
    return platform_wireless_get_dfs_support() &&
           (band == WIFI_BAND_5GHZ_LOW || band == WIFI_BAND_5GHZ_HIGH || band == WIFI_BAND_5GHZ);
}

bool wifi_write_ssid_is_active(const wifi_write &w, int radio, int ssid)
{
    const wifi_ssid_settings &settings = w.settings->ssids[ssid - 1];
    const int band = w.bands[radio];
    if (!settings.enable || band < 0 || w.settings->radios[radio].enable == 0)
        return false;
    // A name on any band makes the bands' own enables count on all of them.
    for (const wifi_band_settings &other : settings.bands)
        if (other.ssid[0])
            return settings.bands[band].enable != 0;
    return true;
}
