// The wired settings document: its rows, and taking it apart. Putting it into force is
// wired_parse.cpp's.
#pragma once

#include <optional>
#include <vector>

#include "platform/fw_core/settings_rows.h"

extern const settings_level WIRED_SETTINGS_TOP;

/// What a document says; what it omits is empty. Texts lie within the document.
struct wired_settings {
    std::optional<std::vector<const char *>> targets;
    std::optional<int> failure_tolerance;
    std::optional<int> test_interval; ///< seconds; 0: no test
    const char *lan_bridge;           ///< "": none
    std::optional<bool> client_disable;
    std::optional<int> client_ssid; ///< 1..4; 0: none
    std::optional<bool> igmp_proxy;
};

/// Takes a whole document (the `params` table) apart and checks it. False, the reason logged at
/// ERROR, when anything in it is wrong.
[[nodiscard]] bool wired_settings_parse(blob_attr *params, wired_settings *settings);
