// The one record that the subsystems share. It is zero at start-up; inet_test_reset() puts it back
// there. Each member is changed by its own subsystem's functions only.
#pragma once

#include "mesh/mesh_state.h"
#include "wired/netifd_enumeration.h"
#include "wired/wired_state.h"

struct tarn_net_state {
    inet_test_state inet_test;
    upstream_record upstream;
    iface_enumeration bridges; ///< the wired ones
    mesh_state mesh;
};

extern tarn_net_state gTarn_net_state;

/// The bus connection, or null before the first one; not part of what a reset clears.
extern ubus_context *gUbus_ctx;
