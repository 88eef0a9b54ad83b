// The mesh as the rest of the daemon sees it: its interfaces, gateway facts and the lonely scan.
#pragma once

#include <cstdint>
#include <libubus.h>

/// Start-up: arms the enumeration of mesh interfaces and the collection of gateway statistics.
void init_mesh_info();
/// Follows a mesh interface object of netifd; one of the same path but another id is replaced.
void enumerate_meshes_add_new(ubus_context *ctx, const char *path, uint32_t id);
/// Forgets that interface.
void enumerate_meshes_remove(const char *path);
/// Forgets every one.
void meshes_forget_all();
/// True when `path` names a bus object of a mesh interface.
bool mesh_is_interface_path(const char *path);
/// Cancels every timer, forgets every interface and fact; the record may then be zeroed.
void mesh_reset();

// Gateway facts (statistics.cpp)

/// Frees and clears the five facts about the gateway.
void mesh_clear_gateway_info();
/// Timer callback: collects the gateway facts in a child process.
void fork_and_execute_batctl_cmds(uloop_timeout *timer);

// The lonely scan (lonely.cpp)

/// Starts the external lonely scan after 500 s and again every minute.
void lonely_start();
/// Ends that and the service itself. False when the service could not be ended (logged).
[[nodiscard]] bool lonely_stop();
/// True while the service runs, whoever has started it.
bool lonely_is_running();
/// Timer callback: starts the external lonely scan and comes back in a minute.
void lonely_periodic_trigger_cb(uloop_timeout *timer);
