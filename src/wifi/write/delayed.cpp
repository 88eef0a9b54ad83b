// Delayed wireless settings: radio changes that could cut a mesh node off are staged in a batch
// file and applied only some minutes after the cloud has confirmed the push.
//
//     idle ── writer delays ──► staged ── confirmed, not as the pending one ──► pending ──► applied
//                                  │                                               7 min, or ended
//                                  └── not confirmed, or equal: deleted            by hand: at once
//
// Neither a staged nor a pending file outlives the daemon: the cloud sees at the next check-in that
// the settings are not in force, and pushes them again.

#include <cerrno>
#include <cstring>
#include <glob.h>
#include <optional>
#include <unistd.h>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/led.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_batch.h"
#include "platform/zu/shell.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/commit.h"
#include "wifi/write/fields_uci.h"

constexpr int DELAYED_WAIT_MS = 420000;
constexpr int AGAIN_MS = 1000;
constexpr size_t PATH_SIZE = 128;

static char gStaged_file[PATH_SIZE];
static char gPending_file[PATH_SIZE];
static uloop_timeout gDelayed_timer;
static bool gTrying_again; // to apply the pending file

static void forget(char *file)
{
    if (file[0])
        unlink(file);
    file[0] = '\0';
}

static void drop_staged()
{
    log_info("No changes in delayed wifi settings for file %s, deleting it", gStaged_file);
    forget(gStaged_file);
}

/// Both names were made by the settings writer and hold nothing that a shell reads as more than
/// text.
static bool staged_equals_pending()
{
    if (!gPending_file[0])
        return false;
    char command[2 * PATH_SIZE + sizeof("diff  ")];
    snprintf(command, sizeof(command), "diff %s %s", gPending_file, gStaged_file);
    const shell_result diff = shell_run(command);
    if (!diff.ran) {
        log_warning("diff command '%s' failed, errno = %d:%s", command, diff.error,
                    strerror(diff.error));
        return false;
    }
    return diff.exit_status == 0;
}

/// One commit of everything: the file's changes and, as the radios now say more of what was pushed,
/// what is kept beside them. False when that cannot be now, for a lock or want of room.
static bool apply_pending()
{
    if (!wifi_packages_can_be_changed())
        return false;
    (void)ng_uci_batch_apply(gPending_file, false); // logged there; a bad file is not kept either
    wifi_keep_settings(gWifi_live_settings);
    if (wifi_commit_radio_settings() != 0)
        return false;
    forget(gPending_file);
    return true;
}

/// Applies the pending file, if any, or sees to it that it is tried again; what stands in its way
/// is said once.
static bool apply_or_try_again()
{
    std::optional<zu_log_repetition> quiet;
    if (gTrying_again)
        quiet.emplace();
    log_notice("Applying delayed wifi settings from file %s", gPending_file);
    gTrying_again = gPending_file[0] && !apply_pending();
    if (gTrying_again)
        uloop_timeout_set(&gDelayed_timer, AGAIN_MS);
    return !gTrying_again;
}

static void wifi_delayed_wireless_cb(uloop_timeout *)
{
    if (!apply_or_try_again())
        return;
    wifi_restore_config_enabled_interfaces(false);
    wifi_radio_list_ifaces();
    (void)gWifi_requests.reload_config();
    shell_run_ignored("/etc/init.d/dnsmasq reload");
    update_led_flag("config", false);
    gWifi_requests.test_uplink();
}

static void staged_becomes_pending()
{
    wifid_cancel_delayed_wireless();
    memcpy(gPending_file, gStaged_file, sizeof(gPending_file));
    gStaged_file[0] = '\0';
    gDelayed_timer.cb = wifi_delayed_wireless_cb;
    uloop_timeout_set(&gDelayed_timer, DELAYED_WAIT_MS);
    log_notice("Starting timer for delayed wifi settings with file %s", gPending_file);
    update_led_flag("config", true);
}

static void end_wait_now()
{
    uloop_timeout_cancel(&gDelayed_timer);
    wifi_delayed_wireless_cb(&gDelayed_timer);
}

void parse_config_event_delayed_wireless(bool success)
{
    if (!gStaged_file[0])
        return;
    if (!success || staged_equals_pending())
        drop_staged();
    else
        staged_becomes_pending();
}

void wifi_delayed_drop()
{
    forget(gStaged_file);
    wifid_cancel_delayed_wireless();
}

void wifi_delayed_start()
{
    wifid_cancel_delayed_wireless();
    gStaged_file[0] = '\0'; // its file goes with those of an earlier run
    glob_t found;
    if (glob(WIFI_DELAYED_FILES "*", GLOB_NOSORT, nullptr, &found) == 0)
        for (size_t i = 0; i < found.gl_pathc; i++) {
            log_notice("Aborting delayed wifi settings from file %s", found.gl_pathv[i]);
            (void)unlink(found.gl_pathv[i]);
        }
    globfree(&found);
    update_led_flag("config", false);
}

void wifi_delayed_stage(const char *path)
{
    forget(gStaged_file);
    snprintf(gStaged_file, sizeof(gStaged_file), "%s", path);
}

wifi_delayed_status wifi_delayed_now()
{
    if (!gPending_file[0])
        return {gStaged_file[0] ? "staged" : "idle", 0};
    const int64_t left_ms = uloop_timeout_remaining64(&gDelayed_timer);
    return {"pending", left_ms > 0 ? static_cast<int>((left_ms + 999) / 1000) : 0};
}

bool wifi_delayed_settings_pending()
{
    return gPending_file[0] != '\0';
}

void wifid_cancel_delayed_wireless()
{
    if (!gPending_file[0])
        return;
    log_notice("Aborting delayed wifi settings from file %s", gPending_file);
    uloop_timeout_cancel(&gDelayed_timer);
    gTrying_again = false;
    forget(gPending_file);
    update_led_flag("config", false);
}

void wifid_maint_window_handler(ubus_context *, ubus_event_handler *, const char *, blob_attr *msg)
{
    if (!msg) {
        log_error("%s is NULL", "msg");
        return;
    }
    blob_attr *active = nullptr;
    if (!zu_blobmsg_parse(ubus_package_maint_window_event_policy, {&active, 1}, msg)) {
        log_error("Unable to parse maintenance window event");
        return;
    }
    if (active && blobmsg_get_bool(active) && wifi_delayed_settings_pending())
        end_wait_now();
}

int ubus_wifi_end_delayed_wireless(ubus_context *, ubus_object *, ubus_request_data *, const char *,
                                   blob_attr *)
{
    log_info("bypassing delayed wireless wait period");
    end_wait_now(); // also with nothing pending: the restore, reloads and test still happen
    return 0;
}
