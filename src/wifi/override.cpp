// The local radio override, from the document that asks for one or the radar that forces one to the
// document that acknowledges it: nonce and reason in the settings record and in UCI.
#include "wifi/override.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <libubus.h>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "wifi/settings/document.h"
#include "wifi/settings/log_json.h"
#include "wifi/settings/parse.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/writer.h"

constexpr int COMMIT_AGAIN_MS = 30000;
constexpr char NONCE_OPTION[] = "tarn_net.local.radio_override";
constexpr char REASON_OPTION[] = "tarn_net.local.override_reason";

static uloop_timeout gCommit_timer;
static bool gUncommitted; ///< the live record's override is not what the configuration says yet

static void save(const wifi_settings *settings)
{
    wifi_make_local_section();
    ng_uci_put(NONCE_OPTION, settings->radio_override);
    ng_uci_put(REASON_OPTION, settings->override_reason);
}

bool wifi_radio_override_active()
{
    return gWifi_live_settings.radio_override[0] != '\0';
}

void wifi_radio_override_clear()
{
    gWifi_live_settings.radio_override[0] = '\0';
    gUncommitted = true;
}

void wifi_radio_override_keep(wifi_settings *fresh)
{
    if (!gUncommitted)
        return;
    memcpy(fresh->radio_override, gWifi_live_settings.radio_override,
           sizeof(fresh->radio_override));
    memcpy(fresh->override_reason, gWifi_live_settings.override_reason,
           sizeof(fresh->override_reason));
}

bool wifi_radio_override_delete()
{
    if (wifi_radio_override_active()) // another one since
        return true;
    const bool deleted = ng_uci_clear(NONCE_OPTION);
    ng_uci_renew_change_context();
    gUncommitted = ng_uci_commit("tarn_net") != 0 || !deleted;
    return !gUncommitted;
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

static void commit_again_cb(uloop_timeout *);

static void commit()
{
    gUncommitted = ng_uci_commit("tarn_net") != 0;
    gCommit_timer.cb = commit_again_cb;
    if (gUncommitted)
        uloop_timeout_set(&gCommit_timer, COMMIT_AGAIN_MS);
    else
        uloop_timeout_cancel(&gCommit_timer);
}

static void commit_again_cb(uloop_timeout *)
{
    save(&gWifi_live_settings); // as it is now: a push may have ended it
    commit();
}

void wifi_radio_override_record(const char *reason)
{
    wifi_set_radio_override(reason, &gWifi_live_settings);
    commit();
}

// ---- what a document says about overrides

static void acknowledge(blob_attr *nonce, wifi_settings *settings)
{
    if (!nonce || strcmp(blobmsg_get_string(nonce), settings->radio_override) != 0)
        return;
    log_notice("Cloud has acknowledged our channel change, obeying configs again");
    settings->radio_override[0] = '\0';
    settings->override_reason[0] = '\0';
    settings->orphan_connect_radio = 0;
    settings->orphan_connect_bssid[0] = '\0';
}

static bool parse_orphan_connect_config(blob_attr *table, wifi_settings *settings)
{
    settings_log_json(SETTINGS_ORPHAN_CONNECT, table);
    settings_values values;
    if (!settings_parse_level(SETTINGS_ORPHAN_CONNECT, table, &values))
        return false;
    blob_attr *radio = values.get("radio");
    if (!radio) {
        log_error("No radio for orphan_connect");
        return false;
    }
    const int index = platform_wireless_get_radio_idx(blobmsg_get_string(radio));
    if (index < 0) {
        log_error("Invalid radio for orphan_connect");
        return false;
    }
    blob_attr *bssid = values.get("bssid");
    if (!bssid) {
        log_error("No bssid for orphan_connect");
        return false;
    }
    settings->orphan_connect_radio = index;
    settings_store_text(settings->orphan_connect_bssid, sizeof(settings->orphan_connect_bssid),
                        blobmsg_get_string(bssid));
    return true;
}

static void ask_for_override(const char *reason, wifi_parsed_document *parsed)
{
    parsed->override_reason = reason;
    for (wifi_ssid_settings &ssid : parsed->settings->ssids)
        ssid.configured = true;
}

//  lonely_friend there?     true: override "lonely"; false: nothing, also not what follows
//  orphan_connect there?    override "orphan_connect"
//  an override in force?    refuse the document: the cloud has not seen our change yet
bool wifi_override_parse(const settings_values &values, wifi_parsed_document *parsed)
{
    acknowledge(values.get("channel_change_nonce"), parsed->settings);
    if (blob_attr *lonely = values.get("lonely_friend")) {
        if (blobmsg_get_u8(lonely))
            ask_for_override("lonely", parsed);
        return true;
    }
    if (blob_attr *orphan_connect = values.get("orphan_connect")) {
        if (!parse_orphan_connect_config(orphan_connect, parsed->settings))
            return false;
        ask_for_override("orphan_connect", parsed);
        return true;
    }
    if (parsed->settings->radio_override[0]) {
        log_error("Local radio settings override, ignoring configuration");
        return false;
    }
    return true;
}
