#include "wifi/radio/override.h"

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

#include <cstdio>
#include <ctime>

#include <libubus.h>

constexpr int COMMIT_AGAIN_MS = 30000;

static uloop_timeout gCommit_timer;

static void save(const wifi_settings *settings)
{
    wifi_make_local_section();
    ng_uci_save_action_ctx(ng_uci_change_context(), uci_set_string, settings->radio_override,
                           "tarn_net.local.radio_override");
    ng_uci_save_action_ctx(ng_uci_change_context(), uci_set_string, settings->override_reason,
                           "tarn_net.local.override_reason");
}

void wifi_set_radio_override(const char *reason, wifi_settings *settings)
{
    if (!reason || !settings) {
        log_error("%s is NULL", reason ? "settings" : "override_reason");
        return;
    }
    if (wifi_radio_override_active())
        log_notice("Radio override already in place, setting up new override");
    // The raw monotonic clock: unlike the time of day it never repeats while the node is up. The
    // nanoseconds stand without leading zeros; the cloud only ever compares the text.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    snprintf(settings->radio_override, sizeof(settings->radio_override), "%ld.%ld",
             static_cast<long>(now.tv_sec), now.tv_nsec);
    snprintf(settings->override_reason, sizeof(settings->override_reason), "%s", reason);
    log_notice("Got override %s at time %s", reason, settings->radio_override);
    save(settings);
}

static void commit_again_cb(uloop_timeout *timer)
{
    save(&gWifi_live_settings); // as it is now: a push may have ended it
    if (ng_uci_commit("tarn_net") != 0)
        uloop_timeout_set(timer, COMMIT_AGAIN_MS);
}

void wifi_radio_override_record(const char *reason)
{
    wifi_set_radio_override(reason, &gWifi_live_settings);
    gCommit_timer.cb = commit_again_cb;
    if (ng_uci_commit("tarn_net") != 0)
        uloop_timeout_set(&gCommit_timer, COMMIT_AGAIN_MS);
    else
        uloop_timeout_cancel(&gCommit_timer);
}
