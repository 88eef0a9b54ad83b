// The wired bridges: which objects of netifd they are, and which one leads out.
#pragma once

#include <cstdint>
#include <libubus.h>

struct iface_entry;

/// Starts an enumeration unless one is in progress.
void init_bridge_info();
/// Follows a wired interface object of netifd; one of the same path but another id is replaced.
void enumerate_bridges_add_new(ubus_context *ctx, const char *path, uint32_t id);
/// Forgets that interface; if it was the uplink, another bridge that leads out takes its place.
void enumerate_bridges_remove(const char *path);
/// Forgets every one; what was the uplink stays it until it is known anew.
void bridges_forget_all();
/// True when `path` names a bus object of a wired interface.
bool bridges_is_interface_path(const char *path);
/// Makes `device` the wired uplink bridge; "": none is known. The one place that sets it.
void uplink_bridge_set(const char *device);
/// The first bridge that is up and has a default route; it is noted as the wired uplink. Null
/// when there is none, the note is then left as it is.
iface_entry *find_bridge_uplink();
