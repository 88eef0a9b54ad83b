// Radar and channel switches, as the kernel tells them: bus events for whoever follows the channel
// availability check, and once radar was seen, a radio override and a check-in, so that the cloud
// learns that a radio has left its channel.
#include <optional>

#include "netlink/nl80211.h"
#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/event.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/override.h"
#include "wifi/radio/dfs.h"
#include "wifi/radio/radio_internal.h"

/// How often it is looked whether the kernel still delivers: when its wireless module is loaded
/// anew, sockets are no longer members of its groups, and nothing says so.
constexpr int LISTENER_CHECK_MS = 30000;

static ng_nl80211_listener gListener;
static uloop_fd gListener_fd;
static uloop_timeout gCheck_timer;

bool dfs_event_detected;

// ---- what an event means

static void send_cac_result(bool success, const char *message)
{
    blob_buffer event;
    if (blob_buf_init(&event, 0) != 0)
        return;
    blobmsg_add_u8(&event, "success", success);
    blobmsg_add_string(&event, "message", message);
    (void)_zu_send_event("dfs.cac_result", event.head);
}

/// The radio is not where the configuration has it: the cloud has to know before it pushes again.
static void left_channel(const char *event)
{
    wifi_radio_override_record("dfs channel switch");
    log_notice("DFS %s triggered delayed checkin", event);
    cloud_checkin(gUbus_ctx, "normal", true);
}

static void channel_switch_radar_detect(const ng_nl80211_event *event)
{
    if (!event->well_formed) {
        log_error("DFS: failed to nla_parse radar event data");
        return;
    }
    if (!event->frequency_mhz || !event->radar_event) {
        log_error("DFS: Bad radar event");
        return;
    }
    const int mhz = static_cast<int>(*event->frequency_mhz);
    const int channel = sys_freq2chan(mhz);
    switch (*event->radar_event) {
    case NG_NL80211_RADAR_DETECTED: // comes whether or not a check was running
        send_cac_result(false, "radar detected during CAC");
        log_notice("DFS: Radar detected on %d MHz, chan = %d", mhz, channel);
        dfs_event_detected = true;
        break;
    case NG_NL80211_RADAR_CAC_FINISHED:
        send_cac_result(true, "completed successfully");
        if (!dfs_event_detected)
            break;
        log_notice("DFS: CAC finished on %d MHz, chan = %d", mhz, channel);
        left_channel("CAC finish");
        break;
    case NG_NL80211_RADAR_CAC_ABORTED:
        send_cac_result(false, "CAC aborted");
        break;
    case NG_NL80211_RADAR_PRE_CAC_EXPIRED:
        send_cac_result(false, "pre CAC expired");
        break;
    default: // the end of a non-occupancy period, and what later kernels tell
        break;
    }
}

/// Without radar before it, somebody wanted the switch.
static void channel_switch_notify(const ng_nl80211_event *event)
{
    if (!dfs_event_detected)
        return;
    if (!event->well_formed) {
        log_error("DFS: failed to nla_parse channel switch data");
        return;
    }
    if (!event->frequency_mhz) {
        log_error("DFS: Channel switch notification");
        return;
    }
    const int mhz = static_cast<int>(*event->frequency_mhz);
    log_notice("DFS: Switched to %d MHz, chan = %d", mhz, sys_freq2chan(mhz));
    left_channel("Channel Switch");
}

void channel_switch_event_cb(const ng_nl80211_event *event, void *)
{
    if (!event) {
        log_error("%s is NULL", "msg");
        return;
    }
    if (event->command == NG_NL80211_CH_SWITCH_NOTIFY)
        channel_switch_notify(event);
    else if (event->command == NG_NL80211_RADAR_DETECT)
        channel_switch_radar_detect(event);
}

// ---- the listener

static void dfs_events_receiver(uloop_fd *, unsigned)
{
    const int result = ng_nl80211_receive_events(&gListener);
    if (result >= 0)
        return;
    log_warning("DFS: nl_recvmsgs() returned %d:%s, restarting", result,
                ng_nl80211_strerror(result));
    restart_dfs_event_listener();
}

static void check_cb(uloop_timeout *timer)
{
    if (ng_nl80211_listen_is_member(&gListener)) {
        uloop_timeout_set(timer, LISTENER_CHECK_MS);
        return;
    }
    std::optional<zu_log_repetition> quiet;
    if (!gListener.socket)
        quiet.emplace(); // why not was said the first time
    restart_dfs_event_listener();
}

static void listen()
{
    if (ng_nl80211_listen_event(&gListener, "mlme", channel_switch_event_cb, nullptr) != 0) {
        log_error("DFS: failed to allocate netlink callbacks");
        return;
    }
    gListener_fd.fd = ng_nl80211_listen_fd(&gListener);
    gListener_fd.cb = dfs_events_receiver;
    uloop_fd_add(&gListener_fd, ULOOP_READ);
    log_debug("DFS: Starting DFS event listener on fd: %d", gListener_fd.fd);
}

void restart_dfs_event_listener()
{
    if (gListener_fd.registered)
        uloop_fd_delete(&gListener_fd);
    ng_nl80211_listen_close(&gListener);
    listen();
    gCheck_timer.cb = check_cb;
    uloop_timeout_set(&gCheck_timer, LISTENER_CHECK_MS);
}
