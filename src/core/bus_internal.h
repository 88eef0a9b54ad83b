// What bus.cpp and bus_objects.cpp tell each other.
#pragma once

#include <libubus.h>

/// Bus event callbacks: an object came or went.
void tarn_net_add_ubus_object(ubus_context *ctx, ubus_event_handler *ev, const char *type,
                              blob_attr *msg);
void tarn_net_remove_ubus_object(ubus_context *ctx, ubus_event_handler *ev, const char *type,
                                 blob_attr *msg);
/// Treats what is on the bus already as just added.
void bus_announce_present_objects(ubus_context *ctx);
/// Forgets what was followed over a lost connection.
void bus_forget_followed_objects(ubus_context *ctx);
