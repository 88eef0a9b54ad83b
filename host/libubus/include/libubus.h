// Client of the message bus: connect, publish objects, call, notify, send and receive events.
// Return values are UBUS_STATUS_* numbers unless said otherwise. Structs must be zero before first
// use; they belong to the caller and stay where they are while the library knows them.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>
#include <libubox/utils.h>
#include <stdbool.h>
#include <stdint.h>

#include "ubus_common.h"
#include "ubusmsg.h"

struct ubus_context;
struct ubus_object;
struct ubus_request;
struct ubus_request_data;
struct ubus_object_data;
struct ubus_event_handler;
struct ubus_subscriber;
struct ubus_notify_request;

/// Handles one call. `msg` lives until the handler returns. The result is sent to the caller.
typedef int (*ubus_handler_t)(struct ubus_context *ctx, struct ubus_object *obj,
                              struct ubus_request_data *req, const char *method,
                              struct blob_attr *msg);
/// The object's first subscriber came or its last one went (obj->has_subscribers).
typedef void (*ubus_state_handler_t)(struct ubus_context *ctx, struct ubus_object *obj);
/// The subscribed object `id` is gone, and with it the subscription.
typedef void (*ubus_remove_handler_t)(struct ubus_context *ctx, struct ubus_subscriber *obj,
                                      uint32_t id);
typedef void (*ubus_event_handler_t)(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                     const char *type, struct blob_attr *msg);
typedef void (*ubus_lookup_handler_t)(struct ubus_context *ctx, struct ubus_object_data *obj,
                                      void *priv);
typedef void (*ubus_data_handler_t)(struct ubus_request *req, int type, struct blob_attr *msg);
/// The receiver owns `fd`.
typedef void (*ubus_fd_handler_t)(struct ubus_request *req, int fd);
/// The request is over and may be reused or freed.
typedef void (*ubus_complete_handler_t)(struct ubus_request *req, int ret);
typedef void (*ubus_notify_complete_handler_t)(struct ubus_notify_request *req, int idx, int ret);
typedef void (*ubus_notify_data_handler_t)(struct ubus_notify_request *req, int type,
                                           struct blob_attr *msg);
typedef void (*ubus_connect_handler_t)(struct ubus_context *ctx);
/// Whether `sub` wants a subscription to the object at `path`.
typedef bool (*ubus_new_object_handler_t)(struct ubus_context *ctx, struct ubus_subscriber *sub,
                                          const char *path);

#define UBUS_TAG_STATUS 1
#define UBUS_TAG_ADMIN 2
#define UBUS_TAG_PRIVATE 4

#define __UBUS_METHOD_NOARG(_name, _handler, _mask, _tags)                                         \
    .name = _name, .handler = _handler, .mask = _mask, .tags = _tags
#define __UBUS_METHOD(_name, _handler, _policy, _mask, _tags)                                      \
    __UBUS_METHOD_NOARG(_name, _handler, _mask, _tags), .policy = _policy,                         \
                                                        .n_policy = ARRAY_SIZE(_policy)

#define UBUS_METHOD(_name, _handler, _policy)                                                      \
    {                                                                                              \
        __UBUS_METHOD(_name, _handler, _policy, 0, 0)                                              \
    }
/// Bit i of `_mask` is set: entry i of the policy is advertised. 0: all are.
#define UBUS_METHOD_MASK(_name, _handler, _policy, _mask)                                          \
    {                                                                                              \
        __UBUS_METHOD(_name, _handler, _policy, _mask, 0)                                          \
    }
#define UBUS_METHOD_TAG(_name, _handler, _policy, _tags)                                           \
    {                                                                                              \
        __UBUS_METHOD(_name, _handler, _policy, 0, _tags)                                          \
    }
#define UBUS_METHOD_NOARG(_name, _handler)                                                         \
    {                                                                                              \
        __UBUS_METHOD_NOARG(_name, _handler, 0, 0), .policy = NULL, .n_policy = 0                  \
    }
#define UBUS_METHOD_TAG_NOARG(_name, _handler, _tags)                                              \
    {                                                                                              \
        __UBUS_METHOD_NOARG(_name, _handler, 0, _tags), .policy = NULL, .n_policy = 0              \
    }
#define UBUS_OBJECT_TYPE(_name, _methods)                                                          \
    {                                                                                              \
        .name = _name, .id = 0, .methods = _methods, .n_methods = ARRAY_SIZE(_methods)             \
    }

/// Pseudo argument types of signatures; never sent.
#define UBUS_SIGNATURE_METHOD (BLOBMSG_TYPE_LAST + 1)
#define UBUS_SIGNATURE_END (BLOBMSG_TYPE_LAST + 2)

struct ubus_method {
    const char *name; // NULL: any method
    ubus_handler_t handler;
    unsigned long mask;
    unsigned long tags;
    const struct blobmsg_policy *policy; // advertised only; arguments are not checked against it
    int n_policy;
};

struct ubus_object_type {
    const char *name;
    uint32_t id; // 0 until published
    const struct ubus_method *methods;
    int n_methods;
};

struct ubus_object {
    struct avl_node avl;
    const char *name; // the path; sent only together with a type
    uint32_t id;      // 0: not published
    const char *path; // unused
    struct ubus_object_type *type;
    ubus_state_handler_t subscribe_cb;
    bool has_subscribers;
    const struct ubus_method *methods;
    int n_methods;
};

struct ubus_subscriber {
    struct list_head list;
    struct ubus_object obj;
    ubus_handler_t cb;
    ubus_remove_handler_t remove_cb;
    ubus_new_object_handler_t new_obj_cb;
};

struct ubus_event_handler {
    struct ubus_object obj;
    ubus_event_handler_t cb;
};

struct ubus_msgbuf {
    struct ubus_msghdr hdr; // host byte order
    struct blob_attr *data;
};

struct ubus_context {
    struct list_head requests;
    struct avl_tree objects;
    struct list_head pending;
    struct uloop_fd sock;
    struct uloop_timeout pending_timer;
    uint32_t local_id; // as it stood in the hello: network byte order
    uint16_t request_seq;
    bool cancel_poll;
    int stack_depth;
    void (*connection_lost)(struct ubus_context *ctx);
    void (*monitor_cb)(struct ubus_context *ctx, uint32_t seq, struct blob_attr *data);
    struct ubus_msgbuf msgbuf;
    uint32_t msgbuf_data_len;
    int msgbuf_reduction_counter;
    struct list_head auto_subscribers;
    struct ubus_event_handler auto_subscribe_event_handler;
};

/// One published object, valid during the look-up callback.
struct ubus_object_data {
    uint32_t id;
    uint32_t type_id;
    const char *path;
    struct blob_attr *signature; // may be NULL
};

struct ubus_acl_key {
    const char *user;
    const char *group;
    const char *object;
};

/// An incoming call.
struct ubus_request_data {
    uint32_t object;
    uint32_t peer;
    uint16_t seq;
    struct ubus_acl_key acl; // points into the message
    bool deferred;
    int fd;     // goes out with the status, -1: none
    int req_fd; // came with the call, -1: none
};

/// An outgoing call. Must stay valid until complete_cb or ubus_abort_request().
struct ubus_request {
    struct list_head list;
    struct list_head pending;
    int status_code;
    bool status_msg;
    bool blocked;
    bool cancelled;
    bool notify;
    uint32_t peer;
    uint16_t seq;
    ubus_data_handler_t raw_data_cb;
    ubus_data_handler_t data_cb;
    ubus_fd_handler_t fd_cb;
    ubus_complete_handler_t complete_cb;
    int fd;
    struct ubus_context *ctx;
    void *priv;
};

struct ubus_notify_request {
    struct ubus_request req;
    ubus_notify_complete_handler_t status_cb;   // per subscriber, idx from 1
    ubus_notify_complete_handler_t complete_cb; // at the end, idx 0
    ubus_notify_data_handler_t data_cb;
    uint32_t pending;
    uint32_t id[UBUS_MAX_NOTIFY_PEERS + 1];
};

struct ubus_auto_conn {
    struct ubus_context ctx;
    struct uloop_timeout timer;
    const char *path; // NULL: the default socket
    ubus_connect_handler_t cb;
};

const char *ubus_strerror(int error);

// Connecting. `path` NULL is the default socket.

/// Connects and reads the greeting, blocking. NULL on failure; released by ubus_free().
struct ubus_context *ubus_connect(const char *path);
/// As ubus_connect() into the caller's struct, which is zeroed. 0 or -1; undone by ubus_shutdown().
int ubus_connect_ctx(struct ubus_context *ctx, const char *path);
/// Connects again and publishes the known objects in the order of their old ids. 0, or a status:
/// UBUS_STATUS_CONNECTION_FAILED when there is no connection. Does not re-add to the loop.
int ubus_reconnect(struct ubus_context *ctx, const char *path);
void ubus_free(struct ubus_context *ctx);
void ubus_shutdown(struct ubus_context *ctx);
/// Watches the socket in the event loop.
void ubus_add_uloop(struct ubus_context *ctx);
/// Reads and handles what has arrived; for programs without the event loop.
void ubus_handle_event(struct ubus_context *ctx);

/// Connects now and again after each loss, every 1000 ms. `conn->cb` runs once, after the first
/// connection and before the socket joins the loop. Event patterns and subscriptions are not
/// restored after a loss.
void ubus_auto_connect(struct ubus_auto_conn *conn);
void ubus_auto_shutdown(struct ubus_auto_conn *conn);

// Publishing.

int ubus_add_object(struct ubus_context *ctx, struct ubus_object *obj);
int ubus_remove_object(struct ubus_context *ctx, struct ubus_object *obj);
/// Sends one reply of an incoming call; `msg` NULL is an empty one. UBUS_STATUS_NO_DATA when it
/// cannot be sent.
int ubus_send_reply(struct ubus_context *ctx, struct ubus_request_data *req, struct blob_attr *msg);
/// Moves an incoming call to `new_req`, to be answered after the handler has returned.
void ubus_defer_request(struct ubus_context *ctx, struct ubus_request_data *req,
                        struct ubus_request_data *new_req);
void ubus_complete_deferred_request(struct ubus_context *ctx, struct ubus_request_data *req,
                                    int ret);
/// `fd` goes out with the status and is then closed.
void ubus_request_set_fd(struct ubus_context *ctx, struct ubus_request_data *req, int fd);
/// The descriptor that came with the call, now the caller's; -1: none.
int ubus_request_get_caller_fd(struct ubus_request_data *req);

// Calling. Synchronous calls hold back method, event and notification handlers until they return.

/// `path` NULL: all objects; a trailing `*` makes it a prefix.
int ubus_lookup(struct ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv);
/// `*id` stays untouched on failure and for an object without a type.
int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id);
/// `timeout` in ms, 0: none. `msg` NULL: no arguments. A passed `fd` is closed.
int ubus_invoke_fd(struct ubus_context *ctx, uint32_t obj, const char *method,
                   struct blob_attr *msg, ubus_data_handler_t cb, void *priv, int timeout, int fd);
int ubus_invoke(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                ubus_data_handler_t cb, void *priv, int timeout);
/// Clears `req` and sends. Then set its callbacks and call ubus_complete_request_async(). There is
/// no time limit, and nothing comes when the peer dies.
int ubus_invoke_async_fd(struct ubus_context *ctx, uint32_t obj, const char *method,
                         struct blob_attr *msg, struct ubus_request *req, int fd);
int ubus_invoke_async(struct ubus_context *ctx, uint32_t obj, const char *method,
                      struct blob_attr *msg, struct ubus_request *req);
/// Waits for a started request; `timeout` in ms, 0: none.
int ubus_complete_request(struct ubus_context *ctx, struct ubus_request *req, int timeout);
void ubus_complete_request_async(struct ubus_context *ctx, struct ubus_request *req);
/// Forgets the request; complete_cb is not called.
void ubus_abort_request(struct ubus_context *ctx, struct ubus_request *req);
/// Completes every queued request with UBUS_STATUS_TIMEOUT.
void ubus_flush_requests(struct ubus_context *ctx);

// Subscriptions, notifications, events.

int ubus_register_subscriber(struct ubus_context *ctx, struct ubus_subscriber *sub);
int ubus_unregister_subscriber(struct ubus_context *ctx, struct ubus_subscriber *sub);
int ubus_subscribe(struct ubus_context *ctx, struct ubus_subscriber *sub, uint32_t id);
int ubus_unsubscribe(struct ubus_context *ctx, struct ubus_subscriber *sub, uint32_t id);
/// Tells all subscribers. `timeout` < 0: does not wait and never fails; else waits for all answers,
/// ms, 0: without limit.
int ubus_notify(struct ubus_context *ctx, struct ubus_object *obj, const char *type,
                struct blob_attr *msg, int timeout);
int ubus_notify_async(struct ubus_context *ctx, struct ubus_object *obj, const char *type,
                      struct blob_attr *msg, struct ubus_notify_request *req);
/// Calling it again with the same `ev` adds a pattern.
int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                const char *pattern);
int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev);
/// `data` must not be NULL. The sender's own handlers do not get the event.
int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);

/// Copies of every message on the bus go to ctx->monitor_cb.
int ubus_monitor_start(struct ubus_context *ctx);
int ubus_monitor_stop(struct ubus_context *ctx);

#ifdef __cplusplus
}
#endif
