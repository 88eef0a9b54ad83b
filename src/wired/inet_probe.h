// The internet test: connections to a list of targets over each candidate interface, all at once.
// It reports what a cycle found to the upstream decision (wired/upstream.h) and decides nothing.
#pragma once

#include <cstdint>

struct blob_buf;
struct list_head;

/// The cycle that runs counts as passed from here on.
void inet_test_count_passed();
/// Tolerates that many failed cycles until the settings are loaded again.
void inet_test_raise_tolerance(int failed_cycles);
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
