// How the node reaches the internet: the states, and what the decision keeps of them.
#pragma once

#include <cstdint>
#include <ctime>
#include <libubus.h>

/// gTarn_net_state.inet_test.upstream_state
enum tarn_net_upstream : uint32_t {
    TARN_NET_UPSTREAM_NONE,       ///< not decided yet
    TARN_NET_UPSTREAM_WAN_STATE,  ///< over the wired uplink; the node is a mesh gateway
    TARN_NET_UPSTREAM_MESH_STATE, ///< through the mesh; the node is a repeater
    TARN_NET_LONELY_ORPHAN_STATE, ///< no upstream; the lonely service looks for one
};

/// What the upstream decision keeps between cycles.
struct upstream_record {
    int64_t since_s; ///< zu_monotonic_s() of the last change of state; 0: none yet
    bool mesh_ready; ///< the mesh's grace period has ended
    uloop_timeout mesh_ready_timer;
    bool mesh_up; ///< the period in which a mesh neighbour is enough has ended
    uloop_timeout mesh_up_timer;
    int32_t wc_eth0_up_count; ///< consecutive passed mesh cycles with link on the port
    int32_t wc_eth1_up_count;
    int32_t lonely_passes; ///< consecutive passed cycles that the lonely service kept from counting
    uint32_t unmade;       ///< steps (upstream_step) that could not be put into force
    uloop_timeout make_up_timer;
    int32_t make_up_delay_ms;
    int32_t gw_mode_of;           ///< index of the bat0 whose gateway mode was set; 0: of none
    bool reload_hangs;            ///< the last "reload_config" had to be ended
    char forwarding_to[16];       ///< where forwarding is to lead while that step is unmade
    bool forwarding_ended;        ///< while lonely, so that none leads to the uplink any more
    char wired_uplink_bridge[16]; ///< "br-wired0", ...; empty while none is known
    char served_bridge[16]; ///< that DHCP and traffic shaper name while in WAN; empty: not the same
};

const char *upstream_state_name(uint32_t state);
/// When the present state was entered, in seconds since 1970.
time_t upstream_since();
/// True while a step of the last change could not be put into force; it is repeated.
bool upstream_is_incomplete();
/// True while a wired uplink bridge is known.
bool upstream_knows_wired_bridge();
