// The mesh subsystem's share of the daemon's state record.
#pragma once

#include <libubus.h>

#include <cstdint>

/// Zero-initialised; set up by mesh_reset() and init_mesh_info().
struct mesh_state {
    list_head list;                ///< followed mesh interfaces (iface_entry)
    uloop_timeout enumerate_timer; ///< pending: enumeration is in progress
    uloop_timeout stats_timer;     ///< between two collections, or bounding the running one
    uloop_process stats_child;     ///< pid and, while it runs, pending
    // Facts about the batman-adv gateway: malloc'ed, null when not known.
    char *gateway_mac;
    char *gateway_quality;
    char *gateway_route;
    char *gateway_latency;
    char *gateway_speed;
    int32_t lonely_trigger_count;
    uloop_timeout lonely_timer;
};
