// The broker's records and what its files offer one another.
// Clients own objects; objects have types, subscribers, targets and event patterns. What a client
// may do is told by access lists; calls carry the caller's user and group.
#pragma once

#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "libubus.h"
#include "wire.h"

struct broker_client;
struct broker_object;

/// What clients wait to be told when they ask for all objects and read slowly.
struct broker_lookup {
    ubus_msghdr hdr;
    bool begun;
    std::string last_path;
};

/// A message, or the rest of one, that the socket did not take.
struct broker_outgoing {
    ubus_msghdr hdr; // network byte order
    wire_blob msg;
    size_t sent;
    int fd;
};

struct broker_socket {
    uloop_fd u;
    broker_client *client;
};

struct broker_client {
    uint32_t id;
    std::string user, group;
    std::vector<std::string> groups; // `group` first, then the supplementary ones
    bool trusted;                    // may do everything
    broker_socket sock;
    bool gone; // gets nothing any more

    // The message being received.
    wire_head head;
    size_t received;
    wire_blob msg;
    int fd; // came with it, -1: none

    std::deque<broker_outgoing> queue;
    size_t queued_bytes;
    std::deque<broker_lookup> lookups;

    std::vector<broker_object *> objects; // oldest first
    uint16_t monitor_seq;
};

struct broker_type {
    uint32_t id;
    std::vector<uint8_t> signature; // methods as in UBUS_ATTR_SIGNATURE
    ~broker_type();
};

struct broker_object {
    uint32_t id;
    broker_client *owner;
    std::unique_ptr<std::string> path;      // null: anonymous
    std::shared_ptr<broker_type> type;      // null: never listed
    std::list<broker_object *> subscribers; // newest first; twice if subscribed twice
    std::list<broker_object *> targets;
    uint16_t seq;         // of the messages about subscriptions
    uint64_t event_stamp; // the event it got last
};

/// One message from a client. Header in host byte order.
struct broker_request {
    ubus_msghdr hdr;
    blob_attr *msg;
    wire_attrs attrs;
    int fd;
};

/// What a request's handler returns when no status is to be sent.
inline constexpr int BROKER_NO_STATUS = -1;

// client.cpp

/// Who connected.
struct broker_peer {
    std::string user;
    std::vector<std::string> groups; // the primary one first
    bool trusted;
};

/// Takes over a connected socket and greets. Null when the socket cannot be watched (closed then).
broker_client *client_add(int fd, const broker_peer &peer);
broker_client *client_find(uint32_t id);
/// Disconnects everybody.
void client_remove_all();
/// Sends or queues; drops what the queue has no room for. Header in host byte order; `fd` stays the
/// caller's.
void client_send(broker_client *client, const ubus_msghdr &hdr, const blob_attr *msg, int fd = -1);
void client_post(broker_client *client, ubus_msg_type type, uint16_t seq, uint32_t peer,
                 const blob_attr *msg, int fd = -1);

// acl.cpp

enum broker_acl_kind {
    BROKER_ACL_PUBLISH,
    BROKER_ACL_SUBSCRIBE,
    BROKER_ACL_LISTEN,
    BROKER_ACL_SEND
};
inline constexpr int BROKER_ACL_KINDS = 4;

/// Reads the access lists, the files *.json of `dir` (null: of the same folder again), in place of
/// those read before. What cannot be read or could have been written by others is reported and
/// ignored.
void acl_load(const char *dir);
bool acl_allows_method(const broker_client *client, const std::string &path, const char *method);
/// Whether the client may publish or subscribe to an object of that path, listen to events of that
/// pattern, or send that event.
bool acl_allows(const broker_client *client, broker_acl_kind kind, const std::string &name);

// message.cpp

/// Handles one whole message; takes over nothing.
void message_handle(broker_client *client, const ubus_msghdr &hdr, blob_attr *msg, int fd);
/// An answer of the broker itself: a message with the request's seq and peer.
void message_reply(broker_client *client, const ubus_msghdr &request, ubus_msg_type type,
                   const blob_attr *msg);
void message_reply_status(broker_client *client, const ubus_msghdr &request, int status);

// object.cpp

broker_object *object_find(uint32_t id);
int object_add(broker_client *client, broker_request &req);
int object_remove(broker_client *client, broker_request &req);
/// Removes the newest object first.
void object_remove_all(broker_client *client);

// lookup.cpp

void lookup_path_added(broker_object *obj);
void lookup_path_removed(const broker_object *obj);
bool lookup_path_taken(const std::string &path);
int lookup_handle(broker_client *client, broker_request &req);
/// Goes on with the client's listings as far as its socket takes them.
void lookup_resume(broker_client *client);

// subscription.cpp

int subscription_add(broker_client *client, broker_request &req);
int subscription_remove(broker_client *client, broker_request &req);
int subscription_notify(broker_client *client, broker_request &req);
/// Ends what `obj` subscribed to, and tells who subscribed to it.
void subscription_forget(broker_object *obj);

// event.cpp

int event_invoke(broker_client *client, const std::string &method, blob_attr *data);
/// Tells every listener but those of `sender` (null: the broker). `data` holds named members.
void event_send(const broker_client *sender, const char *id, const void *data, size_t len);
void event_forget(const broker_object *obj);

// monitor.cpp

int monitor_invoke(broker_client *client, const std::string &method);
void monitor_forget(const broker_client *client);
/// Shows one message to the monitors; header in host byte order.
void monitor_copy(const broker_client *client, const ubus_msghdr &hdr, const blob_attr *msg,
                  bool to_client);

// server.cpp

/// Listens at `path`, replacing a socket file that lies there. 0 or -1, logged.
int server_start(const char *path);
void server_stop();

// id.cpp

/// A random number outside the system range.
uint32_t id_draw();
