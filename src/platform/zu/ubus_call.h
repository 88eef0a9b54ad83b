// Bus calls that nobody waits for, each with a time limit of its own: when a peer dies, the bus
// says nothing to whoever called it.
#pragma once

#include <cstdint>
#include <libubus.h>

/// How a call ended: the peer's status, or UBUS_STATUS_TIMEOUT when no answer came in time or the
/// connection was lost. Called once, from the loop.
using zu_ubus_call_done = void (*)(int status, void *priv);

/// Calls `method` of object `id` with the members of `msg` (null for none). `done` may be null.
/// Answers' data is dropped. Returns 0; or the status of a call that could not be sent: then `done`
/// is never called.
int zu_ubus_call_async(ubus_context *ctx, uint32_t id, const char *method, blob_attr *msg,
                       int timeout_ms, zu_ubus_call_done done, void *priv);
