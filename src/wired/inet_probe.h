// The internet test: connections to a list of targets over each candidate interface, all at once.
// It reports what a cycle found to the upstream decision (wired/upstream.h) and decides nothing.
#pragma once

#include <cstdint>

struct blob_buf;
struct list_head;

/// Settings, from UCI package tarn_net.
struct online_settings {
    int32_t failure_tolerance; ///< failed cycles tolerated; 3 unless configured
    int32_t test_interval;     ///< seconds; the test runs only when above 0
    uint32_t target_count;
    list_head *targets; ///< of tarn_host; null before the first load
};
extern online_settings gOnline_settings;

/// What the last completed cycle came to, for the state dump.
struct inet_test_verdict {
    int64_t at_s; ///< zu_monotonic_s() of it; 0: no cycle has been completed
    bool passed;
    uint32_t result; ///< the upstream state it spoke for
};
extern inet_test_verdict gInet_test_last_verdict;

/// True when there are targets and an interval.
bool inet_test_is_configured();
/// How long no cycle has been completed; the time before the settings in force were taken does not
/// count.
int64_t inet_test_seconds_since_verdict();
/// Adds how each target was tested last over each interface, as tables.
void inet_test_dump_outcomes(blob_buf *buf);

/// Cancels every timer, forgets every followed interface and zeroes the whole state record.
void inet_test_reset();
/// Loads the settings and starts the test if they ask for it.
void inet_test_init();
/// Aborts the running cycle and takes the settings from UCI; while these cannot be read, what is in
/// force stays, and they are read again every second. A bus status.
[[nodiscard]] int reload_inet_test_config();
/// The same after a push; when it has changed nothing of the test, the running cycle and the time
/// of the next one stay.
[[nodiscard]] int inet_test_take_pushed_config();
/// Starts a cycle, unless none is configured, interfaces are being enumerated or one is running.
void run_uplink_test();
/// Starts the cycle that was put off for the enumeration that has just ended, if one was.
void inet_test_enumeration_ended();
/// Aborts the running cycle; its transfers report that they were aborted.
void abort_inet_test();
/// Completes the cycle with `result` if every test of it has been dispatched.
void inet_test_finish_if_complete(uint32_t result);
