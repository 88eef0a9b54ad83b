// Delayed wireless settings: radio changes that could cut a mesh node off are staged in a batch
// file and applied only some minutes after the cloud has confirmed the push.
//
//     idle ── writer delays ──► staged ── confirmed, not as the pending one ──► pending ──► applied
//                                  │                                               7 min, or ended
//                                  └── not confirmed, or equal: deleted            by hand: at once
//
// The daemon may end and start again meanwhile: what is pending stays and waits anew, what is only
// staged goes.

#include "core/state.h"
#include "platform/zu/led.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_batch.h"
#include "platform/zu/shell.h"
#include "wifi/kept.h"
#include "wifi/settings_write.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wired/inet_test.h"

#include "platform/fw_core/fw_core.h"

#include <cerrno>
#include <cstring>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int DELAYED_WAIT_MS = 420000;
constexpr int LOCKED_RETRY_MS = 1000;
constexpr size_t PATH_SIZE = 128;
/// By its mode a file says of itself that it is pending: that changes in one step, and leaves the
/// text, which is compared, as it is.
constexpr mode_t PENDING_MODE = 0400;

char staged_file[PATH_SIZE];
char pending_file[PATH_SIZE];
uloop_timeout delayed_timer;

void forget(char *file)
{
    if (file[0])
        unlink(file);
    file[0] = '\0';
}

void drop_staged()
{
    log_info("No changes in delayed wifi settings for file %s, deleting it", staged_file);
    forget(staged_file);
}

// Both names were made by the settings writer and hold nothing that a shell reads as more than
// text.
bool staged_equals_pending()
{
    if (!pending_file[0])
        return false;
    char command[2 * PATH_SIZE + sizeof("diff  ")];
    snprintf(command, sizeof(command), "diff %s %s", pending_file, staged_file);
    const shell_result diff = shell_run(command);
    if (!diff.ran) {
        log_warning("diff command '%s' failed, errno = %d:%s", command, diff.error,
                    strerror(diff.error));
        return false;
    }
    return diff.exit_status == 0;
}

// One commit of everything: the file's changes and, as the radios now say more of what was pushed,
// what is kept beside them.
void apply_pending()
{
    (void)ng_uci_batch_apply(pending_file, false); // logged there; a bad file is not kept either
    wifi_keep_settings(gWifi_live_settings);
    (void)wifi_commit_packages();
    wifi_radios_now_in_force();
    forget(pending_file);
}

void wifi_delayed_wireless_cb(uloop_timeout *)
{
    if (pending_file[0] && !wifi_packages_are_free()) {
        uloop_timeout_set(&delayed_timer, LOCKED_RETRY_MS); // nothing is lost for another's lock
        return;
    }
    log_notice("Applying delayed wifi settings from file %s", pending_file);
    if (pending_file[0])
        apply_pending();
    wifi_restore_config_enabled_interfaces(false);
    shell_run_ignored("reload_config");
    shell_run_ignored("/etc/init.d/dnsmasq reload");
    update_led_flag("config", false);
    gTarn_net_state.inet_test.test_passed = 1;
    run_uplink_test();
}

void start_wait()
{
    delayed_timer.cb = wifi_delayed_wireless_cb;
    uloop_timeout_set(&delayed_timer, DELAYED_WAIT_MS);
    log_notice("Starting timer for delayed wifi settings with file %s", pending_file);
    update_led_flag("config", true);
}

void staged_becomes_pending()
{
    wifid_cancel_delayed_wireless();
    memcpy(pending_file, staged_file, sizeof(pending_file));
    staged_file[0] = '\0';
    if (chmod(pending_file, PENDING_MODE) != 0)
        log_warning("Failed to mark %s as pending: %s", pending_file, strerror(errno));
    start_wait();
}

void parse_config_event_delayed_wireless(bool success)
{
    if (!staged_file[0])
        return;
    if (!success || staged_equals_pending())
        drop_staged();
    else
        staged_becomes_pending();
}

/// True for a name that the settings writer makes: it becomes part of a command.
bool is_batch_name(const char *path)
{
    const char *number = path + strlen(WIFI_DELAYED_FILES);
    return strlen(path) < PATH_SIZE && number[strspn(number, "0123456789")] == '\0';
}

/// True for a file of our own that was pending, while the live record still waits for it. Another
/// name of some other file of ours, which anybody may have linked here, is none.
bool is_awaited(const char *path)
{
    struct stat info;
    return is_batch_name(path) && lstat(path, &info) == 0 && S_ISREG(info.st_mode) &&
           info.st_nlink == 1 && info.st_uid == geteuid() &&
           (info.st_mode & 07777) == PENDING_MODE && !wifi_at_once_reason(gWifi_live_settings);
}

/// Makes the file of an earlier run the pending one, or deletes it.
void take_over(const char *path)
{
    if (!pending_file[0] && is_awaited(path)) {
        snprintf(pending_file, sizeof(pending_file), "%s", path);
        return;
    }
    log_notice("Deleting %s: nothing confirmed waits in it", path);
    (void)unlink(path);
}

void end_wait_now()
{
    uloop_timeout_cancel(&delayed_timer);
    wifi_delayed_wireless_cb(&delayed_timer);
}

} // namespace

void wifi_delayed_drop()
{
    forget(staged_file);
    wifid_cancel_delayed_wireless();
}

void wifi_delayed_start()
{
    staged_file[0] = pending_file[0] = '\0';
    uloop_timeout_cancel(&delayed_timer);
    glob_t found;
    if (glob(WIFI_DELAYED_FILES "*", GLOB_NOSORT, nullptr, &found) == 0)
        for (size_t i = 0; i < found.gl_pathc; i++)
            take_over(found.gl_pathv[i]);
    globfree(&found);
    if (pending_file[0])
        start_wait();
    else
        update_led_flag("config", false);
}

void wifi_delayed_stage(const char *path)
{
    forget(staged_file);
    snprintf(staged_file, sizeof(staged_file), "%s", path);
}

bool wifi_delayed_settings_pending()
{
    return pending_file[0] != '\0';
}

void wifid_cancel_delayed_wireless()
{
    if (!pending_file[0])
        return;
    log_notice("Aborting delayed wifi settings from file %s", pending_file);
    uloop_timeout_cancel(&delayed_timer);
    forget(pending_file);
    update_led_flag("config", false);
}

void wifid_parse_config_event_handler(ubus_context *, ubus_event_handler *, const char *,
                                      blob_attr *msg)
{
    static constexpr blobmsg_policy POLICY[] = {{"success", BLOBMSG_TYPE_INT8}};
    if (!msg) {
        log_error("%s is NULL", "msg");
        return;
    }
    blob_attr *success = nullptr;
    if (blobmsg_parse(POLICY, 1, &success, blob_data(msg), blob_len(msg)) != 0) {
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

void wifid_maint_window_handler(ubus_context *, ubus_event_handler *, const char *, blob_attr *msg)
{
    if (!msg) {
        log_error("%s is NULL", "msg");
        return;
    }
    blob_attr *active = nullptr;
    if (blobmsg_parse(ubus_package_maint_window_event_policy, 1, &active, blob_data(msg),
                      blob_len(msg)) != 0) {
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
