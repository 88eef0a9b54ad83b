// The local radio override: radios have left what the cloud configured, and its documents are
// refused until the cloud shows that it knows.
#pragma once

#include "wifi/settings/record.h"

/// Records a local radio override in `settings` and in UCI: from now on the cloud's documents are
/// refused until one repeats the nonce made here, or brings an override of its own. `reason` is
/// "lonely", "orphan_connect" or "dfs channel switch". The caller commits.
void wifi_set_radio_override(const char *reason, wifi_settings *settings);
/// Records one in the live record and commits it; what cannot be committed now is tried again.
void wifi_radio_override_record(const char *reason);
