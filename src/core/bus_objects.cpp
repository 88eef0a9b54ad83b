// What happens when a neighbour's object comes to the bus or leaves it.
//
// One table for each direction, tested from the top; the first row that fits is taken.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "core/bus_internal.h"
#include "mesh/mesh.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"
#include "wired/bridges.h"
#include "wired/inet_probe.h"
#include "wired/netifd/iface.h"

constexpr int HAPD_UPDATE_MS = 1000;

struct object_event {
    ubus_context *ctx;
    const char *path;
    uint32_t id;
};
struct object_rule {
    bool (*fits)(const char *path);
    void (*act)(const object_event &event);
};

static bool is_hostapd(const char *path)
{
    return strncmp(path, "hostapd.ap", 10) == 0;
}
static bool is_u80211d(const char *path)
{
    return strcmp(path, "wifi") == 0;
}
static bool is_lldp(const char *path)
{
    return strcmp(path, "qnet.lldp") == 0;
}
static void add_hostapd(const object_event &event)
{
    log_info("New interface '%s', starting timer to send neighbor list", event.path);
    wifi_arm_neighbor_list_timer(HAPD_UPDATE_MS);
    log_info("New interface '%s', adding new hostapd instance to list and starting timer to update "
             "ft_auth_bridge for the instance",
             event.path);
    wifi_add_hapd_instance_to_list(event.path, -1);
    wifi_arm_ft_auth_bridge_timer(HAPD_UPDATE_MS);
}

static void add_mesh(const object_event &event)
{
    log_info("New interface '%s', adding to mesh list", event.path);
    enumerate_meshes_add_new(event.ctx, event.path, event.id);
}

static void add_wired(const object_event &event)
{
    log_info("New interface '%s', adding to wired list", event.path);
    enumerate_bridges_add_new(event.ctx, event.path, event.id);
}

static void add_u80211d(const object_event &event)
{
    log_info("New u80211d object, registering for notifications");
    ubus_object_data object{};
    object.id = event.id;
    object.path = event.path;
    u80211d_object_added(event.ctx, &object);
}

static void add_lldp(const object_event &event)
{
    log_info("New qnet.lldp object, registering for notifications");
    qnet_lldp_register_subscriber(event.ctx, event.id);
}

static void remove_mesh(const object_event &event)
{
    log_info("Interface '%s' removed, deleting from mesh list", event.path);
    enumerate_meshes_remove(event.path);
}

static void remove_wired(const object_event &event)
{
    log_info("Interface '%s' removed, deleting from wired bridges list", event.path);
    enumerate_bridges_remove(event.path);
}

static void remove_u80211d(const object_event &event)
{
    log_info("Deleting u80211d object, unregistering for notifications");
    u80211d_unsubscribe(event.ctx, event.id);
}

static void remove_hostapd(const object_event &event)
{
    log_info("Hostapd instance '%s' removed, deleting from instance list", event.path);
    wifi_remove_hapd_instance_from_list(event.path);
}

static void remove_lldp(const object_event &event)
{
    log_info("qnet.lldp object removed, unregistering for notifications");
    qnet_lldp_unregister_subscriber(event.ctx, event.id);
}

static const object_rule gAdd_rules[] = {
    {is_hostapd, add_hostapd},
    {mesh_is_interface_path, add_mesh},
    {bridges_is_interface_path, add_wired},
    {is_u80211d, add_u80211d},
    {is_lldp, add_lldp},
};
static const object_rule gRemove_rules[] = {
    {mesh_is_interface_path, remove_mesh},
    {bridges_is_interface_path, remove_wired},
    {is_u80211d, remove_u80211d},
    {is_hostapd, remove_hostapd},
    {is_lldp, remove_lldp},
};

template <size_t N>
static void apply_rules(const object_rule (&rules)[N], const object_event &event)
{
    for (const object_rule &rule : rules) {
        if (rule.fits(event.path)) {
            rule.act(event);
            return;
        }
    }
}

enum { OBJECT_ID, OBJECT_PATH };
static const blobmsg_policy gObject_policy[2] = {
    {"id", BLOBMSG_TYPE_INT32},
    {"path", BLOBMSG_TYPE_STRING},
};

/// Takes the event apart; false (logged) when it is not usable.
static bool parse_object_event(ubus_context *ctx, const char *name, blob_attr *msg,
                               object_event *event)
{
    if (!ctx || !msg) {
        log_error("%s is NULL", ctx ? "msg" : "ctx");
        return false;
    }
    blob_attr *tb[2];
    if (!zu_blobmsg_parse(gObject_policy, tb, msg) || !tb[OBJECT_ID] || !tb[OBJECT_PATH]) {
        log_error("%s message didn't contain an ID or path", name);
        return false;
    }
    *event = {ctx, blobmsg_get_string(tb[OBJECT_PATH]), blobmsg_get_u32(tb[OBJECT_ID])};
    return true;
}

void tarn_net_add_ubus_object(ubus_context *ctx, ubus_event_handler *, const char *, blob_attr *msg)
{
    object_event event;
    if (parse_object_event(ctx, "ubus.object.add", msg, &event))
        apply_rules(gAdd_rules, event);
}

/// A round of the internet test that uses the interface ends with what it has.
static void finish_test_over(const char *path)
{
    const inet_test_state &test = node_state().inet_test;
    for (const auto &block : test.slots) {
        if (block[0].interface && strcmp(block[0].interface, path) == 0) {
            inet_test_finish_if_complete(test.upstream_state);
            return;
        }
    }
}

void tarn_net_remove_ubus_object(ubus_context *ctx, ubus_event_handler *, const char *,
                                 blob_attr *msg)
{
    object_event event;
    if (!parse_object_event(ctx, "ubus.object.remove", msg, &event))
        return;
    finish_test_over(event.path);
    apply_rules(gRemove_rules, event);
}

static bool has_add_rule(const char *path)
{
    return std::any_of(std::begin(gAdd_rules), std::end(gAdd_rules),
                       [path](const object_rule &rule) { return rule.fits(path); });
}

void bus_announce_present_objects(ubus_context *ctx)
{
    for (const bus_object &object : bus_lookup_objects(ctx, has_add_rule))
        apply_rules(gAdd_rules, {ctx, object.path.c_str(), object.id});
}

void bus_forget_followed_objects(ubus_context *ctx)
{
    bridges_forget_all();
    meshes_forget_all();
    iface_list_free_retired();
    wifi_bus_reset(ctx);
}
