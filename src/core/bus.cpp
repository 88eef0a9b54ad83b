// The connection to the bus and what the daemon publishes on it.
//
//   bus_start ─► connect handler ─► live ─ lost ─► watched ─ socket back ─► reset ─► connect
//   handler
//
// After a loss the bus library connects again by itself and publishes every object it knows, but it
// restores neither event patterns nor subscriptions and never calls the connect handler again. So
// connection_lost is wrapped: when the socket is back, what the library has published is taken off
// and the handler runs as it did the first time. Everything then exists once, however often the
// connection was lost, also when it is lost again half way through.
#include "core/bus.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "core/bus_internal.h"
#include "platform/fw_core/fw_core.h"
#include "platform/fw_core/jobs.h"
#include "platform/zu/event.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"
#include "wired/netifd/iface.h"
#include "wired/wired.h"

/// How often it is looked whether the library has its socket back, in ms.
constexpr int WATCH_MS = 100;
/// What is on the bus already is looked at this many ms after the connect handler: it makes calls,
/// and inside the handler the connection is not in the loop yet.
constexpr int ANNOUNCE_MS = 10;

static const package_callbacks gWired_callbacks = {
    wired_parse_config, wired_reload_config, gen_checkin_wired_section, nullptr, wired_dump_state,
};
static const package_callbacks gWifi_callbacks = {
    wifi_parse_config, wifi_reload_config_cb, gen_checkin_wifi_section,
    wifi_health_check, wifi_dump_state,
};

static const ubus_method gWired_methods[] = {
    UBUS_METHOD("parse_config", ubus_parse_config, ubus_package_parse_config_policy),
    UBUS_METHOD("reload_config", ubus_reload_config, ubus_package_reload_config_policy),
    UBUS_METHOD("set_debug_level", ubus_set_debug_level, ubus_package_set_debug_level_policy),
    UBUS_METHOD("gen_checkin", ubus_gen_checkin, ubus_package_gen_checkin_policy),
    UBUS_METHOD_NOARG("health_check", ubus_health_check),
    UBUS_METHOD("dump_state", ubus_dump_state, ubus_package_dump_state_policy),
    UBUS_METHOD("wired_event", wired_event, gWired_event_policy),
    UBUS_METHOD("debug", debug_event, gDebug_event_policy),
};

static const blobmsg_policy gAp_scan_now_policy[] = {{"checkin_after_scan", BLOBMSG_TYPE_INT8}};
static const ubus_method gWifi_methods[] = {
    UBUS_METHOD("parse_config", ubus_parse_config, ubus_package_parse_config_policy),
    UBUS_METHOD("reload_config", ubus_reload_config, ubus_package_reload_config_policy),
    UBUS_METHOD("set_debug_level", ubus_set_debug_level, ubus_package_set_debug_level_policy),
    UBUS_METHOD("gen_checkin", ubus_gen_checkin, ubus_package_gen_checkin_policy),
    UBUS_METHOD_NOARG("health_check", ubus_health_check),
    UBUS_METHOD("dump_state", ubus_dump_state, ubus_package_dump_state_policy),
    UBUS_METHOD_NOARG("end_delayed_wireless", ubus_wifi_end_delayed_wireless),
    UBUS_METHOD("ap_scan_now", ubus_wifi_ap_scan_now, gAp_scan_now_policy),
    UBUS_METHOD_NOARG("ap_survey_now", ubus_wifi_ap_survey_now),
    UBUS_METHOD_NOARG("force_wifi_restart", ubus_force_wifi_restart),
};

template <size_t N>
static constexpr ubus_object object_of(const char *name, ubus_object_type *type,
                                       const ubus_method (&methods)[N])
{
    ubus_object object{};
    object.name = name;
    object.type = type;
    object.methods = methods;
    object.n_methods = N;
    return object;
}

static ubus_object_type gWired_type = UBUS_OBJECT_TYPE("qnet.wired", gWired_methods);
static ubus_object gWired_object = object_of("qnet.wired", &gWired_type, gWired_methods);
static ubus_object_type gWifi_type = UBUS_OBJECT_TYPE("qnet.wifi", gWifi_methods);
static ubus_object gWifi_object; // filled in by the connect handler

static ubus_event_handler gParse_config_status = {.obj = {},
                                                  .cb = wifid_parse_config_event_handler};
static ubus_event_handler gObject_added = {.obj = {}, .cb = tarn_net_add_ubus_object};
static ubus_event_handler gObject_removed = {.obj = {}, .cb = tarn_net_remove_ubus_object};
static ubus_event_handler gMaint_window = {.obj = {}, .cb = wifid_maint_window_handler};

struct event_subscription {
    const char *pattern;
    ubus_event_handler *handler;
};
static const event_subscription gEvents[] = {
    {"qnet.jobs", &gUbus_jobs_event_handler}, {"parse_config_status", &gParse_config_status},
    {"ubus.object.add", &gObject_added},      {"ubus.object.remove", &gObject_removed},
    {"qnet.maint_window", &gMaint_window},
};

static ubus_auto_conn gBus;
static void (*gLibrary_connection_lost)(ubus_context *ctx);
static uloop_timeout gStart_timer;
static uloop_timeout gWatch_timer;
static uloop_timeout gAnnounce_timer;

/// The next free slot of the package table, or null (logged) when it is full. A name that stands in
/// the table already gets another slot: the first one stays the one that is found.
static package_handler *next_package_slot()
{
    if (gPackage_method_handlers_index < PACKAGE_HANDLERS_MAX)
        return &gPackage_method_handlers[gPackage_method_handlers_index++];
    log_error("Unable to register handlers, too many handlers already registered in this package");
    return nullptr;
}

static void register_package(const char *name, const package_callbacks *callbacks)
{
    package_handler *slot = next_package_slot();
    if (!slot)
        return;
    snprintf(slot->name, sizeof slot->name, "%s", name);
    slot->callbacks = callbacks;
}

static void register_events(ubus_context *ctx)
{
    for (const event_subscription &event : gEvents) {
        const int status = ubus_register_event_handler(ctx, event.handler, event.pattern);
        if (status != UBUS_STATUS_OK)
            log_warning("Failed to listen to '%s': %s", event.pattern, ubus_strerror(status));
        if (event.handler == &gUbus_jobs_event_handler)
            gPackage_jobs_events = wifi_jobs();
    }
}

static void announce_cb(uloop_timeout *)
{
    bus_announce_present_objects(gUbus_ctx);
}

static bool is_connected(const ubus_context *ctx)
{
    return ctx->sock.registered && !ctx->sock.eof && !ctx->sock.error;
}

static void connection_lost_cb(ubus_context *ctx)
{
    if (gLibrary_connection_lost)
        gLibrary_connection_lost(ctx);
    if (!gWatch_timer.pending)
        log_warning("Lost the connection to UBUS");
    uloop_timeout_cancel(&gAnnounce_timer);
    uloop_timeout_set(&gWatch_timer, WATCH_MS);
}

/// Takes off what the library has published again. False when the connection broke meanwhile: an
/// object keeps its id until the broker has confirmed.
static bool unpublish(ubus_context *ctx)
{
    for (ubus_object *object : {&gWired_object, &gWifi_object}) {
        if (object->id != 0)
            (void)ubus_remove_object(ctx, object);
        if (object->id != 0)
            return false;
    }
    for (const event_subscription &event : gEvents) {
        if (event.handler->obj.id != 0)
            (void)ubus_unregister_event_handler(ctx, event.handler);
        if (event.handler->obj.id != 0)
            return false;
    }
    return true;
}

/// Runs until the socket is back and everything stands again.
static void watch_cb(uloop_timeout *timer)
{
    ubus_context *ctx = gUbus_ctx;
    if (!is_connected(ctx) || !unpublish(ctx)) {
        uloop_timeout_set(timer, WATCH_MS);
        return;
    }
    bus_forget_followed_objects(ctx);
    if (timer->pending) // lost again: connection_lost_cb has armed the timer
        return;
    tarn_net_ubus_connection_handler(ctx);
}

static void adopt_connection(ubus_context *ctx)
{
    gUbus_ctx = ctx;
    zu_event_set_context(ctx);
    if (ctx->connection_lost != connection_lost_cb) {
        gLibrary_connection_lost = ctx->connection_lost;
        ctx->connection_lost = connection_lost_cb;
    }
    gWatch_timer.cb = watch_cb;
    gAnnounce_timer.cb = announce_cb;
    uloop_timeout_set(&gAnnounce_timer, ANNOUNCE_MS);
}

static void publish_wired(ubus_context *ctx)
{
    const int status = ubus_add_object(ctx, &gWired_object);
    if (status != UBUS_STATUS_OK)
        log_warning("failed to add object: %s", ubus_strerror(status));
}

static void publish_wifi(ubus_context *ctx)
{
    register_package("qnet.wifi", &gWifi_callbacks);
    gWifi_object = object_of("qnet.wifi", &gWifi_type, gWifi_methods);
    log_info("Connected to UBUS");
    const int status = ubus_add_object(ctx, &gWifi_object);
    if (status != UBUS_STATUS_OK)
        log_error("Failed to register methods with UBUS: %s", ubus_strerror(status));
}

void tarn_net_ubus_connection_handler(ubus_context *ctx)
{
    register_package("qnet.wired", &gWired_callbacks);
    if (!ctx) {
        log_error("%s is NULL", "uctx");
        return;
    }
    adopt_connection(ctx); // first: from here on a loss is noticed
    publish_wired(ctx);
    publish_wifi(ctx);
    register_events(ctx);
}

static void first_attempt_cb(uloop_timeout *)
{
    gBus.cb = tarn_net_ubus_connection_handler;
    ubus_auto_connect(&gBus);
}

void bus_start()
{
    // The library connects, calls the handler and lets it answer calls from inside
    // ubus_auto_connect(); from the loop, so that by then every subsystem stands.
    gStart_timer.cb = first_attempt_cb;
    uloop_timeout_set(&gStart_timer, 0);
}
