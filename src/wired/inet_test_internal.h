// Shared by inet_test.cpp and inet_test_transfer.cpp.
#pragma once

struct inet_test_slot;

/// Opens the slot's transfer. False on failure (logged); the slot then never reports.
[[nodiscard]] bool dispatch_curl_inet_test(inet_test_slot *slot);
/// Aborts the slot's transfer, if it holds one, and forgets what it tested.
void abort_slot(inet_test_slot *slot);
/// As many reports as tests.
bool inet_test_all_reported();
