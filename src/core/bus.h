// The daemon's side of the bus: its connection, objects, packages and event handlers.
#pragma once

#include <libubus.h>

/// Starts connecting as soon as the loop runs; the library keeps trying until the connection
/// stands, and again after a loss.
void bus_start();
/// The connect callback: publishes the objects, registers packages and event handlers.
void tarn_net_ubus_connection_handler(ubus_context *ctx);
