// Putting a parsed settings record in force.
#pragma once

#include "wifi/wifi_settings.h"

/// Makes `settings` the live record. 0 or -1 (logged).
[[nodiscard]] int wifid_write_config(const wifi_settings *settings);

/// Records a local radio override in `settings` and in UCI: from now on the cloud's documents are
/// refused until one repeats the nonce made here, or brings an override of its own. `reason` is
/// "lonely" or "orphan_connect".
void wifi_set_radio_override(const char *reason, wifi_settings *settings);
