// The key of the network that a node offers to orphaned ones.
#pragma once

#include <string>

/// Derives the key from a BSSID, whose letters' case does not matter: 32 lower-case hex digits. 0,
/// or -1 (logged) with `key` untouched.
[[nodiscard]] int wifi_generate_orphan_key(const char *bssid, std::string *key);
