// The settings and the state of the wireless package as a bus document.
#pragma once

#include <libubus.h>

#include "wifi/settings/record.h"

/// Adds the members of the settings document's view of `settings` to the open table of `buf`;
/// secrets only with `include_secrets`. 0, or -1 (logged) without a buffer; a member that cannot be
/// added is logged and left out.
int wifi_dump_settings(blob_buf *buf, const wifi_settings *settings, bool include_secrets);

/// Adds the tables "settings" and "state", and what the radios are asked. As above.
int wifi_dump_settings_and_state(blob_buf *buf, bool include_secrets);
