// The wired package as the daemon's core sees it: callbacks and methods of "qnet.wired".
#pragma once

#include <cstdint>
#include <libubus.h>

int wired_parse_config(ubus_context *ctx, blob_attr *msg, blob_buf *reply);
int wired_reload_config(ubus_context *ctx, blob_attr *msg, blob_buf *reply);
int gen_checkin_wired_section(ubus_context *ctx, blob_attr *msg, blob_buf *reply);
int wired_dump_state(ubus_context *ctx, blob_attr *msg, blob_buf *reply);

/// Policies of the two methods below.
extern const blobmsg_policy gWired_event_policy[2]; ///< interface STRING, action STRING
extern const blobmsg_policy gDebug_event_policy[1]; ///< enable INT32
int wired_event(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                blob_attr *msg);
int debug_event(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                blob_attr *msg);

/// Has netifd take an interface down or, with `up`, bounce it: up to 0.5 s for each of the two
/// calls. 0, or -1 when netifd is not on the bus.
int netifd_event(ubus_context *ctx, const char *name, bool up);
