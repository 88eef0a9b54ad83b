// Shared by the files of the upstream: what moves with its state.
#pragma once

#include <cstdint>

/// What follows from the upstream state: steps, each put into force by itself, as bits of
/// upstream_record::unmade. What fails is logged, once; it alone is repeated, after a second, two,
/// four, up to a minute, until it succeeds.
enum upstream_step : uint32_t {
    UPSTREAM_STOP_LONELY = 1 << 0, ///< the lonely service ends, the radios are as configured again
    UPSTREAM_OVERRIDE = 1 << 1,    ///< the radio override's option is deleted
    UPSTREAM_GW_MODE = 1 << 2,     ///< batman-adv's gateway mode
    UPSTREAM_ROUTES = 1 << 3,      ///< routing rules
    UPSTREAM_DHCP = 1 << 4,        ///< who serves DHCP and DNS
    UPSTREAM_FIREWALL = 1 << 5,    ///< the captive portal's log-out rules
    UPSTREAM_PORTAL = 1 << 6,      ///< interfaces of captive portal and traffic shaper
    UPSTREAM_FORWARDING = 1 << 7,  ///< forwarding to upstream_record::forwarding_to
    UPSTREAM_RELOAD = 1 << 8,      ///< "reload_config" has run
};

/// Puts a step into force for `state`. False on failure; it will be repeated for the state then.
bool upstream_make(upstream_step step, uint32_t state);
/// What somebody else has put into force in the step's place failed: it is repeated as if it had.
void upstream_take_back(upstream_step step);
/// The step is not wanted any more.
void upstream_forget(upstream_step step);

/// Lets DHCP and traffic shaper name the wired uplink bridge that a cycle has just passed over, if
/// they name another port's. True when they had to change: "reload_config" has to follow.
bool upstream_follow_bridge();
/// Sets the gateway mode of a bat0 that was made anew, as netifd does when its options change.
void upstream_follow_mesh();
/// Sends "netconfigd.gateway_mode" for a change to `next`.
void upstream_send_gateway_mode(uint32_t next);
/// Sends "network.inet_test": "internet test passed" or "internet test failed".
void upstream_send_inet_test(bool success);
