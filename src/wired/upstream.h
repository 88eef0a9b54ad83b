// How the node reaches the internet, and what follows from it.
#pragma once

#include <cstdint>

/// Weighs a cycle's result (a state value) and moves the upstream state. Nothing while the cycle is
/// not completely dispatched.
void complete_inet_test(uint32_t result);
/// Makes routing rules, DHCP, captive portal and firewall follow `state` and the interface of the
/// cycle's success. True when the uplink interface was switched; false also when nothing changed
/// and when only the state did.
bool update_uplink_interface(uint32_t state);
/// Leaves NONE for WAN at once, on the first wired success. As update_uplink_interface().
bool upstream_enter_wan_from_none();
/// Makes "br-<name>" the wired uplink bridge, or none when null, and applies what follows from it.
void uplink_set(const char *name);
/// Sets the forwarding rules of the present uplink anew.
void upstream_reapply_forwarding();
/// Runs "reload_config", which makes services follow the committed configuration; one that fails is
/// repeated until it succeeds. False when it failed.
[[nodiscard]] bool run_reload_config();
/// True when batman-adv sees a neighbour.
bool inet_test_run_additional_mesh_tests();
/// Ends the period in which a mesh neighbour counts as upstream, and its query.
void upstream_cancel_neighbor_check();
/// Cancels the timers of the upstream; the record may then be zeroed.
void upstream_reset();
