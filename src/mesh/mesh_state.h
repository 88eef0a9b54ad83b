// The mesh subsystem's share of the daemon's state record.
#pragma once

#include "mesh/gateway_facts.h"
#include "wired/netifd_enumeration.h"

#include <libubus.h>

#include <cstdint>

/// Zero-initialised; set up by mesh_reset() and init_mesh_info().
struct mesh_state : iface_enumeration {
    uloop_timeout stats_timer;  ///< between two collections, or bounding the running one
    uloop_process stats_child;  ///< pid and, while it runs, pending
    mesh_gateway_facts gateway; ///< about the batman-adv gateway
    int32_t lonely_trigger_count;
    uloop_timeout lonely_timer;
};
