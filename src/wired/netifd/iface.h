// Followed interfaces: objects of netifd whose notifications are subscribed to and whose status is
// asked for and kept.
//
// Two lists hold them: the wired bridges (wired/bridges.h) and the mesh interfaces (mesh/mesh.h).
// Who owns a list decides which objects enter it and when to ask again.
#pragma once

#include <cstdint>
#include <libubus.h>
#include <string>
#include <vector>

/// An object on the bus.
struct bus_object {
    std::string path;
    uint32_t id;
};
/// Every object on the bus whose path is `wanted`, in the broker's order. Empty without a bus.
std::vector<bus_object> bus_lookup_objects(ubus_context *ctx, bool (*wanted)(const char *path));

struct iface_enumeration;
struct iface_entry;
using iface_status_cb = void (*)(iface_entry *entry);

/// One followed interface. Made by iface_list_new_iface(), freed by iface_list_free_iface().
struct iface_entry {
    list_head link;
    char device[16]; ///< kernel interface, empty until known
    bool up;         ///< as the last status said
    bool has_default_route;
    char gateway[16];     ///< of the chosen route, empty when none
    char address[16];     ///< own address of the chosen route, without prefix length
    ubus_request request; ///< the status call, while `asking`
    bool got_data;        ///< the call has delivered data
    bool parsed;          ///< the call has ended, well or not
    char *obj_path;
    ubus_subscriber subscriber;
    iface_enumeration *enumeration; ///< whose list it is in
    iface_status_cb on_status;      ///< called after every completed status call; may be null
    iface_status_cb on_change;      ///< called when facts have been taken or lost; may be null

    ubus_context *ctx;
    uint32_t id;   ///< bus id subscribed to
    bool asking;   ///< a status call is open
    bool answered; ///< the last call brought a status that could be used
    bool repeated; ///< the last call repeats one
    bool up_when_asked;
    uloop_timeout status_timer; ///< pending: when it fires the status is asked for (again)
};

/// Subscribes to object `id` and asks for its status. The caller links the entry into its list and
/// sets the callbacks. Null on failure (logged), with nothing left behind.
iface_entry *iface_list_new_iface(ubus_context *ctx, const char *obj_path, uint32_t id);
/// Asks for the status, for 6 s; a call still open is dropped for the new one. False on failure
/// (logged). The status is asked for again each half minute, for good.
bool iface_list_call_status(ubus_context *ctx, iface_entry *entry, uint32_t id);
/// Repeats the question: drops a call that is open and makes a new one, which stays open until it
/// is answered or, every 30 s, replaced. An answer that comes late is as good as any.
void iface_list_ask_again(iface_entry *entry);
/// Takes a status answer or a notification into the entry and tells the list's owner. False when it
/// does not say what is needed (logged).
bool iface_list_parse_status(iface_entry *entry, blob_attr *msg);

/// The entry whose object is `obj_path`, or null.
iface_entry *iface_list_find(list_head *list, const char *obj_path);
/// Unlinks and frees the entry of that object, if any, with its request and subscription.
void iface_list_free_iface(list_head *list, const char *obj_path);
/// The same for every entry.
void iface_list_free_all(list_head *list);
/// Frees what could not be freed because the bus was gone at the time. Call it after reconnecting.
void iface_list_free_retired();
