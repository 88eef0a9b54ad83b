// Settings in force: the live record is replaced here and nowhere else.

#include "wifi/settings_write.h"

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

#include <cstdio>
#include <ctime>

int wifid_write_config(const wifi_settings *settings)
{
    if (!settings) {
        log_error("%s is NULL", "parsed_settings");
        return -1;
    }
    gWifi_live_settings = *settings;
    return 0;
}

void wifi_set_radio_override(const char *reason, wifi_settings *settings)
{
    if (!reason || !settings) {
        log_error("%s is NULL", reason ? "settings" : "override_reason");
        return;
    }
    if (wifi_radio_override_active())
        log_notice("Radio override already in place, setting up new override");
    // The raw monotonic clock: unlike the time of day it never repeats while the node is up.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    snprintf(settings->radio_override, sizeof(settings->radio_override), "%ld.%ld",
             static_cast<long>(now.tv_sec), now.tv_nsec);
    snprintf(settings->override_reason, sizeof(settings->override_reason), "%s", reason);
    log_notice("Got override %s at time %s", reason, settings->radio_override);
    ng_uci_save_action_ctx(ng_uci_change_context(), uci_set_string, settings->radio_override,
                           "tarn_net.local.radio_override");
    ng_uci_save_action_ctx(ng_uci_change_context(), uci_set_string, settings->override_reason,
                           "tarn_net.local.override_reason");
}
