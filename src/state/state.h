// The record that the subsystems share, to read. Each of its shares is changed by the folder that
// owns it alone, which includes state/owned.h for it; everybody else asks here.
#pragma once

#include "state/followed.h"
#include "state/inet_test_state.h"
#include "state/mesh_state.h"
#include "state/upstream_state.h"

struct tarn_net_state {
    inet_test_state inet_test;
    upstream_record upstream;
    iface_enumeration bridges; ///< the wired ones
    mesh_state mesh;
};

/// The record as it is now.
const tarn_net_state &node_state();

/// The bus connection, or null before the first one. Set by core/bus; not part of what a reset
/// clears.
extern ubus_context *gUbus_ctx;
