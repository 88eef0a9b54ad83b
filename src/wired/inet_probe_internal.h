// Shared by the files of the internet test.
#pragma once

#include "platform/zu/uloop_curl.h"

struct inet_test_slot;

/// Opens the slot's transfer. False on failure (logged); the slot then never reports.
[[nodiscard]] bool dispatch_curl_inet_test(inet_test_slot *slot);
/// Aborts the slot's transfer, if it holds one, and forgets what it tested.
void abort_slot(inet_test_slot *slot);
/// Remembers how the slot's test ended (inet_probe_outcomes.cpp).
void inet_test_note_outcome(const inet_test_slot *slot, CURLcode code);
void inet_test_forget_outcomes();
/// As many reports as tests.
bool inet_test_all_reported();
