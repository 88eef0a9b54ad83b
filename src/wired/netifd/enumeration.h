// Enumeration of netifd's interfaces: which of them are on the bus, and what state each is in.
//
//   start ─ 5 s ─► ask every interface for its status ─ all answered, or 5 s ─► over
//
// The wired bridges (wired/bridges.h) and the mesh interfaces (mesh/mesh.h) have one each. While
// one runs the internet test waits; a cycle that was skipped for it runs when it ends. Interfaces
// that come and go later are announced by the bus.
#pragma once

#include <cstdint>
#include <libubus.h>

#include "state/followed.h"
#include "wired/netifd/iface.h"

/// What differs between the two.
struct iface_kind {
    bool (*wanted)(const char *path); ///< the path names an interface of this kind
    /// True when what is known is enough and only that is asked; else the bus is searched.
    bool (*is_known)();
    bool ends_when_answered;   ///< not before its limit otherwise
    iface_status_cb on_change; ///< facts of one were taken or lost; null when nobody minds
    const char *noun;          ///< as in "Mesh '...' failed to respond"
    const char *add_failure;
    void (*log_lookup_failure)(const char *path);
};

/// Has `ended` called whenever an enumeration is over.
void iface_enumeration_tell_end(void (*ended)());
/// Starts an enumeration. False when one is in progress already.
bool iface_enumeration_start(iface_enumeration *enumeration, const iface_kind *kind);
/// Follows an interface object; one of the same path but another id is replaced. What fails is
/// logged.
void iface_enumeration_add(iface_enumeration *enumeration, const iface_kind *kind,
                           ubus_context *ctx, const char *path, uint32_t id);
/// Cancels the enumeration and forgets every interface; the record may then be zeroed.
void iface_enumeration_reset(iface_enumeration *enumeration);
