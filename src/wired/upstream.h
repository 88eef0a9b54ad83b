// How the node reaches the internet, and what follows from it.
#pragma once

#include <cstdint>
#include <ctime>

/// gTarn_net_state.inet_test.upstream_state
enum tarn_net_upstream : uint32_t {
    TARN_NET_UPSTREAM_NONE,       ///< not decided yet
    TARN_NET_UPSTREAM_WAN_STATE,  ///< over the wired uplink; the node is a mesh gateway
    TARN_NET_UPSTREAM_MESH_STATE, ///< through the mesh; the node is a repeater
    TARN_NET_LONELY_ORPHAN_STATE, ///< no upstream; the lonely service looks for one
};

const char *upstream_state_name(uint32_t state);
/// When the present state was entered, in seconds since 1970.
time_t upstream_since();
/// True while a step of the last change could not be put into force; it is repeated.
bool upstream_is_incomplete();

/// Weighs a cycle's result (a state value) and moves the upstream state. Nothing while the cycle is
/// not completely dispatched.
void complete_inet_test(uint32_t result);
/// Makes routing rules, DHCP, captive portal and firewall follow `state` and the interface of the
/// cycle's success. True when the uplink interface was switched; false also when nothing changed
/// and when only the state did.
bool update_uplink_interface(uint32_t state);
/// Leaves NONE for WAN at once, on the first wired success. As update_uplink_interface().
bool upstream_enter_wan_from_none();
/// Runs "reload_config", which makes services follow the committed configuration; one that fails is
/// repeated until it succeeds. False when it failed.
[[nodiscard]] bool run_reload_config();
/// True when batman-adv sees a neighbour.
bool inet_test_run_additional_mesh_tests();
/// Ends the period in which a mesh neighbour counts as upstream, and its query.
void upstream_cancel_neighbor_check();
/// Cancels the timers of the upstream; the record may then be zeroed.
void upstream_reset();
