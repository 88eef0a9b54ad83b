// Writing a settings record to the configuration.
#pragma once

#include <string>

#include "wifi/settings/record.h"

/// Writes `settings` as save actions, uncommitted. Radio settings that have to wait for the push's
/// confirmation stand in the batch file that `held_back` then names. 0, or -1 (logged): then no
/// change waits.
[[nodiscard]] int wifi_write_settings(const wifi_settings &settings, std::string *held_back);
/// Why wifi_write_settings() would write the radio settings at once ("no radio carries the mesh"),
/// or null when it would hold them back.
const char *wifi_at_once_reason(const wifi_settings &settings);
/// Makes the section of the daemon's own package that the node's own options stand in, where it is
/// missing.
void wifi_make_local_section();
/// The portal's host files, with the addresses written last; to be called when they are committed.
void wifi_write_portal_hosts();
/// Writes those that are missing, as all are when the node has started, with the configured
/// addresses.
void wifi_restore_portal_hosts();
