// The wired subsystem's share of the daemon's state record.
#pragma once

#include <libubus.h>

#include <cstdint>

#include "platform/zu/host_list.h"
#include "platform/zu/uloop_curl.h"

constexpr int INET_TEST_INTERFACES = 8; ///< block 0: the wired uplink, 1..7: mesh interfaces
constexpr int INET_TEST_TARGETS = HOST_LIST_MAX;

/// One connection attempt.
struct inet_test_slot {
    int32_t url_idx;
    int32_t interface_idx;
    tarn_host *target;
    const char *interface; ///< into inet_test_state::interface_names
    uloop_curl_easy easy;
};

/// The internet test; a cycle runs while test_run_count != tests_to_run or interfaces_to_test != 0.
struct inet_test_state {
    uloop_curl_context curl;
    uloop_timeout timer;      ///< ticks every test_interval
    uloop_timeout read_timer; ///< pending: the settings could not be read and will be
    uint32_t upstream_state;
    char uplink_iface[16];
    char passed_iface[16]; ///< interface of the cycle's last successful connection
    int32_t interfaces_to_test;
    uint32_t tests_to_run;
    int32_t test_run_count; ///< slots that have reported
    uint32_t test_passed;   ///< the cycle had a successful connection
    bool dispatch_complete;
    bool cycle_delayed;     ///< put off until the enumeration that runs has ended
    int32_t ticks_in_cycle; ///< that came while it ran
    int32_t test_failures;  ///< consecutive failed cycles
    inet_test_slot slots[INET_TEST_INTERFACES][INET_TEST_TARGETS];
    /// Names under test, one a block: a followed interface may vanish or be renamed meanwhile.
    char interface_names[INET_TEST_INTERFACES][16];
};

/// What the upstream decision keeps between cycles.
struct upstream_record {
    bool mesh_ready; ///< the mesh's grace period has ended
    uloop_timeout mesh_ready_timer;
    bool mesh_up; ///< the period in which a mesh neighbour is enough has ended
    uloop_timeout mesh_up_timer;
    int32_t wc_eth0_up_count; ///< consecutive passed mesh cycles with link on the port
    int32_t wc_eth1_up_count;
    uint32_t unmade; ///< steps (upstream_step) that could not be put into force
    uloop_timeout make_up_timer;
    int32_t make_up_delay_ms;
    bool reload_hangs;            ///< the last "reload_config" had to be ended
    char forwarding_to[16];       ///< where forwarding is to lead while that step is unmade
    char wired_uplink_bridge[16]; ///< "br-wired0", ...; empty while none is known
    char served_bridge[16]; ///< that DHCP and traffic shaper name while in WAN; empty: not the same
};
