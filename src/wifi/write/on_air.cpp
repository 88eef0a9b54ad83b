// What is to be on the air: the questions that decide several options.
#include "platform/zu/platform_data.h"
#include "wifi/write/write_internal.h"

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
