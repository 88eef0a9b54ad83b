// What a netifd status answer or notification says about an interface.
//
// netifd is another process and its device and address texts reach UCI, libcurl and the log, so
// they are taken only in the form and length that such names have.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "wired/netifd/iface.h"
#include "wired/netifd/iface_internal.h"

enum { STATUS_UP, STATUS_DEVICE, STATUS_ROUTE, STATUS_MEMBERS };
static const blobmsg_policy gStatus_policy[STATUS_MEMBERS] = {
    {"up", BLOBMSG_TYPE_INT8},
    {"device", BLOBMSG_TYPE_STRING},
    {"route", BLOBMSG_TYPE_ARRAY},
};

enum { ROUTE_SOURCE, ROUTE_NEXTHOP, ROUTE_TARGET, ROUTE_MASK, ROUTE_MEMBERS };
static const blobmsg_policy gRoute_policy[ROUTE_MEMBERS] = {
    {"source", BLOBMSG_TYPE_STRING},
    {"nexthop", BLOBMSG_TYPE_STRING},
    {"target", BLOBMSG_TYPE_STRING},
    {"mask", BLOBMSG_TYPE_INT32},
};

static void log_message(blob_attr *msg, bool list)
{
    if (!zu_log_wanted(ZU_LOG_DEBUG))
        return;
    const zu_text text = zu_blobmsg_json(msg, list);
    log_debug("'%s'", text ? text.get() : "NULL");
}

static void clear_route(iface_entry *entry)
{
    entry->has_default_route = false;
    entry->gateway[0] = '\0';
    entry->address[0] = '\0';
}

static void tell_change(iface_entry *entry)
{
    if (entry->on_change)
        entry->on_change(entry);
}

void iface_list_clear_facts(iface_entry *entry)
{
    entry->device[0] = '\0';
    entry->up = false;
    clear_route(entry);
    tell_change(entry);
}

static bool is_device_name(const char *name)
{
    if (*name == '\0')
        return false;
    for (const char *c = name; *c != '\0'; c++) {
        if (isalnum(static_cast<unsigned char>(*c)) == 0 && !strchr("._-:@", *c))
            return false;
    }
    return true;
}

static void read_gateway(iface_entry *entry, blob_attr *nexthop)
{
    if (!nexthop) {
        log_warning("Interface '%s' response to status() route member is missing a gateway IP",
                    entry->obj_path);
    }
    snprintf(entry->gateway, sizeof entry->gateway, "%s",
             nexthop ? blobmsg_get_string(nexthop) : "");
    log_debug("%s gateway: %s", entry->obj_path, entry->gateway);
}

/// The address comes with its prefix length, "192.0.2.7/24".
static void read_address(iface_entry *entry, blob_attr *source)
{
    if (!source) {
        log_warning("Interface '%s' response to status() route member is missing a node IP",
                    entry->obj_path);
    }
    const char *text = source ? blobmsg_get_string(source) : "";
    snprintf(entry->address, sizeof entry->address, "%.*s", static_cast<int>(strcspn(text, "/")),
             text);
    log_debug("%s IP addr: %s", entry->obj_path, entry->address);
}

/// Takes one element of "route"; true when it is the default route, which ends the walk.
static bool read_route(iface_entry *entry, blob_attr *route)
{
    if (blobmsg_type(route) != BLOBMSG_TYPE_TABLE) {
        log_warning("unexpected route type found (expected table)");
        return false;
    }
    blob_attr *tb[ROUTE_MEMBERS];
    if (!zu_blobmsg_parse(gRoute_policy, tb, route)) {
        log_error("Interface '%s' response to status() route member is malformed", entry->obj_path);
        log_message(route, false);
        return false;
    }
    if (!tb[ROUTE_TARGET] || !tb[ROUTE_MASK]) {
        log_warning("Skipping '%s' set as potential wired upstream link, route did not contain "
                    "target and mask fields",
                    entry->obj_path);
        return false;
    }
    read_gateway(entry, tb[ROUTE_NEXTHOP]);
    read_address(entry, tb[ROUTE_SOURCE]);
    return strcmp(blobmsg_get_string(tb[ROUTE_TARGET]), "0.0.0.0") == 0 &&
           blobmsg_get_u32(tb[ROUTE_MASK]) == 0;
}

/// Without a default route, gateway and address are the last element's.
static void read_routes(iface_entry *entry, blob_attr *routes)
{
    clear_route(entry);
    blob_attr *route;
    size_t rem;
    blobmsg_for_each_attr(route, routes, rem)
    {
        if (read_route(entry, route)) {
            entry->has_default_route = true;
            return;
        }
    }
}

static bool read_device(iface_entry *entry, blob_attr *device)
{
    if (!device) {
        log_error("Interface '%s' response to status() is missing the 'device' member",
                  entry->obj_path);
        return false;
    }
    const char *name = blobmsg_get_string(device);
    if (!is_device_name(name)) {
        log_error("Interface '%s' response to status() names an impossible device '%.32s'",
                  entry->obj_path, name);
        return false;
    }
    snprintf(entry->device, sizeof entry->device, "%s", name);
    return true;
}

/// False when the message does not say whether the interface is up, or names no device for one that
/// is.
static bool read_status(iface_entry *entry, blob_attr *msg)
{
    blob_attr *tb[STATUS_MEMBERS];
    if (!zu_blobmsg_parse(gStatus_policy, tb, msg)) {
        log_error("Failed to parse interface '%s' status response", entry->obj_path);
        log_message(msg, true);
        return false;
    }
    if (!tb[STATUS_UP]) {
        log_error("Interface '%s' response to status() is missing the 'up' member",
                  entry->obj_path);
        return false;
    }
    entry->up = blobmsg_get_bool(tb[STATUS_UP]);
    if (!read_device(entry, tb[STATUS_DEVICE]))
        return !entry->up;
    if (!tb[STATUS_ROUTE]) // how netifd says down
        clear_route(entry);
    else
        read_routes(entry, tb[STATUS_ROUTE]);
    return true;
}

bool iface_list_parse_status(iface_entry *entry, blob_attr *msg)
{
    if (!entry || !msg) {
        log_error("%s is NULL", entry ? "msg" : "iface");
        return false;
    }
    const bool usable = read_status(entry, msg);
    tell_change(entry);
    return usable;
}
