// Putting a parsed settings record in force.
#pragma once

#include "wifi/settings/record.h"

#include <span>

/// The packages that a push writes to.
std::span<const char *const> wifi_written_packages();

/// Makes `settings` the live record. 0 or -1 (logged).
[[nodiscard]] int wifid_write_config(const wifi_settings *settings);

/// Why wifid_write_config() would apply these radio settings at once ("no radio carries the mesh"),
/// or null when it would hold them back until the push is confirmed.
const char *wifi_at_once_reason(const wifi_settings &settings);
