// The daemon's side of the bus: its connection, objects, packages and event handlers.
#pragma once

#include <libubus.h>

/// Starts the connection; the library keeps trying until it stands, and again after a loss.
void bus_start();
/// The connect callback: publishes the objects, registers packages and event handlers.
void tarn_net_ubus_connection_handler(ubus_context *ctx);
