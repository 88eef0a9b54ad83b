// What the bus library's callers and its own sources have in common beside the messages.
#pragma once

/// Subscribers whose answers one notification can wait for; further ones are not tracked.
#define UBUS_MAX_NOTIFY_PEERS 16
