// A push, from the cloud's document to radios that follow it, and the record read back at a start.
//
//     wifi_parse_config   document ─► a copy of the live record (settings/parse)
//                                  ─► an override that it asks for (override)
//     wifid_write_config  ─► options (write/writer); what could cut a mesh node off into a batch
//                            file ─► commit of all packages, or of none ─► the live record
//                         ─► the batch file staged (write/delayed), or none: the radios follow
//                         ─► reload_config, when a package has changed
//     confirmation        ─► staged file waits, neighbour list is taken over; or both are dropped
//
//     wifi_reload_config  configuration ─► the live record
//
// A package that cannot be read is not a missing one: what is in force stays, and the configuration
// is read again until it can be.

#include <optional>
#include <unistd.h>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/health.h"
#include "wifi/override.h"
#include "wifi/radio/radio.h"
#include "wifi/settings/document.h"
#include "wifi/settings/parse.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/commit.h"
#include "wifi/write/fields_uci.h"
#include "wifi/write/writer.h"

constexpr int AGAIN_MS = 1000;

/// What is being parsed or read. Too large for the stack of a small device, and one at a time.
static wifi_settings gWorking;
static bool gIs_read;
static uloop_timeout gAgain_timer;

// ---- document ─► record

int wifi_parse_config(ubus_context *, blob_attr *msg, blob_buf *)
{
    enum { CONFIG_ENABLE, CONFIG_PARAMS, CONFIG_FIELDS };
    static constexpr blobmsg_policy POLICY[CONFIG_FIELDS] = {
        {"enable", BLOBMSG_TYPE_INT8},
        {"params", BLOBMSG_TYPE_TABLE},
    };
    blob_attr *fields[CONFIG_FIELDS] = {};
    if (!zu_blobmsg_parse(POLICY, fields, msg)) {
        log_error("Unable to parse arguments");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!wifi_settings_are_read()) {
        log_error("The settings in force have not been read yet, try again in a moment");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const int status = wifid_parse_config(fields[CONFIG_PARAMS]);
    if (fields[CONFIG_PARAMS])
        settings_explain_passed_over(SETTINGS_TOP, fields[CONFIG_PARAMS]);
    return status;
}

int wifid_parse_config(blob_attr *params)
{
    if (!params) {
        log_error("%s is NULL", "msg");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    wifi_settings_copy(&gWorking, *wifi_live_settings());
    wifi_parsed_document parsed = {&gWorking, nullptr, nullptr};
    if (wifi_settings_parse(params, &parsed) != 0)
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (parsed.override_reason)
        wifi_set_radio_override(parsed.override_reason, &gWorking);
    if (wifid_write_config(&gWorking) != 0) {
        ng_uci_drop_changes(); // the override's
        log_error("Failed to write uci batch config");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (parsed.neighbors)
        wifi_stage_neighbors(parsed.neighbors);
    return 0;
}

// ---- record ─► configuration ─► radios

/// What a commit puts into force.
struct written_push {
    wifi_first_ssids on_air;
    std::string held_back; ///< batch file of the radio stage, when that has to wait
    bool changed;          ///< a package is another now
};

/// Writes and commits; `settings` becomes the record to be in force. 0 or -1: then nothing is
/// changed.
static int write_and_commit(wifi_settings *settings, written_push *push)
{
    if (wifi_write_settings(*settings, &push->held_back) != 0)
        return -1;
    // Now: after the commit another process may lock the packages.
    wifi_read_foreign_settings(settings);
    push->on_air = wifi_radio_first_ssids();
    if (wifi_commit_packages(&push->changed) == 0)
        return 0;
    if (!push->held_back.empty())
        (void)unlink(push->held_back.c_str());
    return -1;
}

static void radios_follow(const wifi_settings &live, const std::string &held_back)
{
    if (!held_back.empty()) {
        wifi_delayed_stage(held_back.c_str());
        return;
    }
    wifi_in_force_set(live);
    wifi_delayed_drop();
}

/// The daemon of the orphan network follows it, and is started also when it has been stopped since:
/// a change of upstream does that.
static void orphand_follows(bool was_on, bool is_on)
{
    if (is_on)
        (void)wifid_start_orphand();
    else if (was_on)
        wifid_stop_orphand();
}

int wifid_write_config(wifi_settings *settings)
{
    if (!settings) {
        log_error("%s is NULL", "parsed_settings");
        return -1;
    }
    if (!wifi_settings_can_be_written(*settings) || !wifi_packages_can_be_changed())
        return -1;
    written_push push{};
    if (write_and_commit(settings, &push) != 0)
        return -1;
    const bool saved_orphans = gWifi_live_settings.save_orphans;
    wifi_settings_copy(&gWifi_live_settings, *settings);
    radios_follow(*settings, push.held_back);
    wifi_write_portal_hosts();
    (void)ng_uci_renew_change_context(); // a failure is logged there; the push is in force
    if (push.changed) {
        (void)gWifi_requests.reload_config();
        wifi_radio_list_ifaces(push.on_air);
    }
    orphand_follows(saved_orphans, settings->save_orphans);
    wifid_apply_bridges();
    return 0;
}

// ---- the confirmation

void wifid_parse_config_event_handler(ubus_context *, ubus_event_handler *, const char *,
                                      blob_attr *msg)
{
    static constexpr blobmsg_policy POLICY[] = {{"success", BLOBMSG_TYPE_INT8}};
    if (!msg) {
        log_error("%s is NULL", "msg");
        return;
    }
    blob_attr *success = nullptr;
    if (!zu_blobmsg_parse(POLICY, {&success, 1}, msg)) {
        log_error("Unable to parse parse_config status event");
        return;
    }
    if (!success) {
        log_error("parse_config status event didn't contain success flag");
        return;
    }
    parse_config_event_delayed_wireless(blobmsg_get_bool(success));
    parse_config_event_neighbors(blobmsg_get_bool(success));
}

// ---- configuration ─► record

static int read_record()
{
    if (!wifi_settings_can_be_read())
        return UBUS_STATUS_UNKNOWN_ERROR;
    wifi_settings_zero(&gWorking, sizeof gWorking);
    wifi_read_settings(&gWorking);
    wifi_radio_override_keep(&gWorking);
    wifi_settings_copy(&gWifi_live_settings, gWorking);
    wifi_radios_now_in_force();
    wifi_radio_list_ifaces();
    wifi_restore_portal_hosts();
    return UBUS_STATUS_OK;
}

static int read_or_try_again()
{
    const int status = read_record();
    if (status != UBUS_STATUS_OK) {
        uloop_timeout_set(&gAgain_timer, AGAIN_MS);
        return status;
    }
    uloop_timeout_cancel(&gAgain_timer);
    gIs_read = true;
    return status;
}

static void read_again_cb(uloop_timeout *)
{
    std::optional<zu_log_repetition> quiet(std::in_place); // why not was said the first time
    if (read_or_try_again() != UBUS_STATUS_OK)
        return;
    quiet.reset();
    log_notice("The wireless settings have been read now");
}

int wifi_reload_config(bool first_start)
{
    gAgain_timer.cb = read_again_cb;
    if (first_start) {
        wifi_delayed_start();
        wifi_radio_start();
        wifi_check_enables();
        wifi_health_start();
        gIs_read = false;
    }
    return read_or_try_again();
}

bool wifi_settings_are_read()
{
    return gIs_read;
}

int wifi_reload_config_cb(ubus_context *, blob_attr *, blob_buf *)
{
    return wifi_reload_config(false);
}
