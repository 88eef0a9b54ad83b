// The radio daemon u80211d on the bus: which object it is, and the subscription to what it tells.
#include <cstring>

#include "platform/zu/log.h"
#include "platform/zu/shell.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"

constexpr int SUBSCRIBE_AGAIN_MS = 30000;

static ubus_subscriber gSubscriber;
static uint32_t gRefused_id; ///< the object that could not be followed; 0: none
static uloop_timeout gSubscribe_timer;
static uloop_timeout gRestart_timer; ///< runs for a while after a restart

// ---- the subscription

static void subscribe_again_cb(uloop_timeout *)
{
    const zu_log_repetition quiet; // it was said the first time
    if (gUbus_ctx && gRefused_id != 0)
        u80211d_register_subscriber(gUbus_ctx, gRefused_id);
}

/// Without the subscription neither scans nor surveys work, so it is tried until the object is
/// gone.
static void refused(uint32_t id)
{
    gRefused_id = id;
    gSubscribe_timer.cb = subscribe_again_cb;
    uloop_timeout_set(&gSubscribe_timer, SUBSCRIBE_AGAIN_MS);
}

static void nothing_refused()
{
    gRefused_id = 0;
    uloop_timeout_cancel(&gSubscribe_timer);
}

void u80211d_register_subscriber(ubus_context *ctx, uint32_t id)
{
    if (!ctx) {
        log_error("%s is NULL", "ctx");
        return;
    }
    gSubscriber.cb = tarn_net_wifi_scan_done_handler;
    if (!gScan_state.subscriber_registered) {
        if (ubus_register_subscriber(ctx, &gSubscriber) != UBUS_STATUS_OK) {
            log_error("Unable to register a subscriber for wifi (u80211d) notifications");
            refused(id);
            return;
        }
        gScan_state.subscriber_registered = true;
        log_info("Registered subscriber");
    }
    if (id == gScan_state.u80211d_obj_id)
        return;
    if (ubus_subscribe(ctx, &gSubscriber, id) != UBUS_STATUS_OK) {
        log_error("Unable to subscribe to wifi (u80211d) notifications");
        refused(id);
        return;
    }
    nothing_refused();
    gScan_state.u80211d_obj_id = id;
    log_info("Registered for u80211d events obj_id = %d", static_cast<int>(id));
}

void u80211d_object_added(ubus_context *ctx, const ubus_object_data *object)
{
    if (object && object->path && strcmp(object->path, "wifi") == 0)
        u80211d_register_subscriber(ctx, object->id);
}

void u80211d_unsubscribe(ubus_context *ctx, uint32_t id)
{
    if (id == gRefused_id)
        nothing_refused();
    if (gScan_state.subscriber_registered)
        (void)ubus_unsubscribe(ctx, &gSubscriber, id); // gone already when the object is
    if (id == gScan_state.u80211d_obj_id)
        gScan_state.u80211d_obj_id = 0;
}

void u80211d_forget(ubus_context *ctx)
{
    nothing_refused();
    if (gScan_state.u80211d_obj_id != 0)
        u80211d_unsubscribe(ctx, gScan_state.u80211d_obj_id);
    // One that cannot be unregistered is still in the library's hands and stays as it is.
    if (!gScan_state.subscriber_registered || ubus_unregister_subscriber(ctx, &gSubscriber) != 0)
        return;
    gScan_state.subscriber_registered = false;
    log_info("Unregistered subscriber");
}

void u80211d_bus_reset(ubus_context *ctx)
{
    gScan_state.u80211d_obj_id = 0; // the subscription went with the connection
    u80211d_forget(ctx);
}

// ---- the restart

void u80211d_restart()
{
    if (gRestart_timer.pending) {
        log_notice("u80211d was restarted a moment ago");
        return;
    }
    gRestart_timer.cb = [](uloop_timeout *) {};
    uloop_timeout_set(&gRestart_timer, U80211D_PAUSE_MS);
    const shell_result result = shell_run("/etc/init.d/u80211d restart");
    if (!result.ran || result.exit_status != 0)
        log_warning("u80211d could not be restarted: %s %d", result.ran ? "status" : "errno",
                    result.ran ? result.exit_status : result.error);
}
