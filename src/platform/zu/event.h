// Bus events.
#pragma once

struct blob_attr;
struct ubus_context;

/// The connection that events go out on; null without one. Set by the connect handler.
void zu_event_set_context(ubus_context *ctx);
/// Sends event `type` with the members of `data`. 0, or a bus status (logged at WARNING).
int _zu_send_event(const char *type, blob_attr *data);
