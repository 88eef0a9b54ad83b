// Shared inside wired/: what moves with the upstream state.
#pragma once

#include <cstdint>

/// The one place that sets the upstream state; logs old and new.
void upstream_set_state(uint32_t state);
/// Puts what follows from the present state into force: rules, DHCP, captive portal, orphan
/// service. What fails is logged, and `incomplete` remembers it.
void upstream_apply_state();
/// Tries again what could not be put into force with the present state, if anything.
void upstream_make_up();
/// Sends "netconfigd.gateway_mode" for a change to `next`.
void upstream_send_gateway_mode(uint32_t next);
/// Sends "network.inet_test": "internet test passed" or "internet test failed".
void upstream_send_inet_test(bool success);
/// Runs "batctl gw_mode", server for the WAN state, else client; remembers when it could not.
void upstream_set_gw_mode(uint32_t state);
/// Runs "reload_config". False when the shell could not run it.
[[nodiscard]] bool run_reload_config();
/// True while a wired uplink bridge is known.
bool upstream_knows_wired_bridge();
