// Between the files of the bus library.
#pragma once

#include "libubus.h"
#include "wire.h"

// io.cpp

/// Sends one message, waiting until it is out, and closes `fd`. 0, or -1 when the connection is
/// gone or the message too long for the bus.
int ubus_io_send(ubus_context *ctx, uint8_t type, uint16_t seq, uint32_t peer, blob_attr *msg,
                 int fd = -1);
/// Reads the next message into ctx->msgbuf. False when none has begun or the connection is gone
/// (ctx->sock.eof). A descriptor that came with it is stored in `*fd`.
bool ubus_io_read(ubus_context *ctx, int *fd);
/// As ubus_io_read(), but waits for a message to begin.
bool ubus_io_read_wait(ubus_context *ctx, int *fd);

// context.cpp

/// Reads and handles messages until none is left or ctx->cancel_poll is set.
void ubus_receive(ubus_context *ctx);
/// Handles what was held back during synchronous waits, oldest first.
void ubus_process_pending(ubus_context *ctx);
/// The connection is gone: completes every queued request, then tells the owner of the context.
void ubus_connection_gone(ubus_context *ctx);

// request.cpp

/// Clears `req` and sends its message. 0 or UBUS_STATUS_INVALID_ARGUMENT. Closes `fd`.
int ubus_request_start(ubus_context *ctx, ubus_request *req, uint8_t type, uint32_t peer,
                       blob_attr *msg, int fd = -1);
/// Sends, waits and gives back the status; raw_data_cb gets the data.
int ubus_request_run(ubus_context *ctx, uint8_t type, blob_attr *msg, ubus_data_handler_t raw_cb,
                     void *priv);
/// Ends a request with a status and calls its complete_cb, later if a data callback is running.
void ubus_request_finish(ubus_request *req, int status);
/// STATUS or DATA came in.
void ubus_reply_received(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd);

// notify.cpp

/// Whether a status from `peer` belongs to this notification.
bool ubus_notify_expects(const ubus_notify_request *req, uint32_t peer);
void ubus_notify_status(ubus_notify_request *req, uint32_t peer, const wire_attrs &attrs);

// object.cpp

/// INVOKE, NOTIFY or UNSUBSCRIBE came in for one of the context's objects.
void ubus_object_received(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd);
/// Publishes all known objects again in the order of their old ids. 0 or the first failure.
int ubus_republish(ubus_context *ctx);

// subscriber.cpp

/// The subscriber whose calls go to `obj`, or null.
ubus_subscriber *ubus_subscriber_of(ubus_object *obj);
/// Subscribes those with new_obj_cb again after a reconnection.
void ubus_auto_subscribe_again(ubus_context *ctx);
