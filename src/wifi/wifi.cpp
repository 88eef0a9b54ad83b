// The live settings and the questions about them that other subsystems ask.
#include "wifi/wifi.h"

#include <cstring>

#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"
#include "platform/zu/shell.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi_internal.h"

wifi_settings gWifi_live_settings;

static const char *const gBand_names[WIFI_BANDS] = {
    "2.4GHz", "5GHz_low", "5GHz_high", "5GHz", "scanning",
};

const wifi_settings *wifi_live_settings()
{
    return &gWifi_live_settings;
}

const char *wifi_band_name(int band)
{
    return band >= 0 && band < WIFI_BANDS ? gBand_names[band] : nullptr;
}

int wifid_find_band_by_type(const char *name)
{
    for (int band = 0; band < WIFI_BANDS; band++) {
        if (strcmp(gBand_names[band], name) == 0)
            return band;
    }
    return -1;
}

int wifi_radio_count()
{
    const int radios = platform_wireless_get_num_radios();
    if (radios < 0)
        return 0;
    return radios < WIFI_RADIOS_MAX ? radios : WIFI_RADIOS_MAX;
}

int wifi_radio_band_type(int radio)
{
    const char *name = platform_wireless_get_radio_band_name(radio);
    return name ? wifid_find_band_by_type(name) : -1;
}

void wifi_bus_reset(ubus_context *ctx)
{
    wifi_lldp_bus_reset(ctx);
    wifi_hapd_bus_reset();
    u80211d_bus_reset(ctx);
}

int wifid_start_orphand()
{
    const shell_result start = shell_run("/etc/init.d/orphand start");
    if (!start.ran) {
        log_warning("Unable to start orphand.  errno=%d:%s", start.error, strerror(start.error));
        return -1;
    }
    if (start.exit_status != 0)
        log_warning("orphand exited with rc %d", start.exit_status);
    return start.exit_status;
}

void wifid_stop_orphand()
{
    shell_run_ignored("/etc/init.d/orphand stop");
}
