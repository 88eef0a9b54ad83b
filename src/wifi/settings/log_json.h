// Parts of a settings document in the log.
#pragma once

#include "wifi/settings/document.h"

/// Logs a table of that level, or an array of such, as JSON at DEBUG. Only values of known keys
/// that hold no secret are shown, all others are "***".
void settings_log_json(const settings_level &level, blob_attr *attr);
