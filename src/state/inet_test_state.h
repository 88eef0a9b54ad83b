// The internet test's share of the record, and its settings.
#pragma once

#include <cstdint>
#include <libubus.h>

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

/// How the last completed cycle ended.
struct inet_test_verdict {
    int64_t at_s; ///< zu_monotonic_s() of it; 0: no cycle has been completed
    bool passed;
    uint32_t result; ///< the upstream state it spoke for
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
    inet_test_verdict last_verdict;
};

/// Settings, from UCI package tarn_net.
struct online_settings {
    int32_t failure_tolerance; ///< failed cycles tolerated; 3 unless configured
    int32_t test_interval;     ///< seconds; the test runs only when above 0
    uint32_t target_count;
    list_head *targets; ///< of tarn_host; null before the first load
    int64_t taken_at_s; ///< zu_monotonic_s() of when they came into force
};

/// Those in force.
const online_settings &inet_test_settings();
/// True when there are targets and an interval.
bool inet_test_is_configured();
/// How long no cycle has been completed; the time before the settings in force were taken does not
/// count.
int64_t inet_test_seconds_since_verdict();
