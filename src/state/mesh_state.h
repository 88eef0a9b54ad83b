// The mesh subsystem's share of the record.
#pragma once

#include <cstdint>
#include <libubus.h>

#include "state/followed.h"

/// Five facts about the batman-adv gateway; each text is owned, null when unknown. Plain, so that a
/// zeroed record is empty.
struct mesh_gateway_facts {
    char *mac;     ///< token "gwm"
    char *quality; ///< token "gwq": 0..255
    char *route;   ///< token "tr": comma-separated MAC addresses of the hops
    char *latency; ///< token "p": average round trip in ms
    char *speed;   ///< token "tp": number, separator and unit, for example "156.84-MB/s"
};

/// Zero-initialised; set up by mesh_reset() and init_mesh_info().
struct mesh_state : iface_enumeration {
    uloop_timeout stats_timer;  ///< between two collections, or bounding the running one
    uloop_process stats_child;  ///< pid and, while it runs, pending
    mesh_gateway_facts gateway; ///< about the batman-adv gateway
    int32_t lonely_trigger_count;
    uloop_timeout lonely_timer;
};
