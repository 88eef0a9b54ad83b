// Committing what a push changed, and what the radios are set to since.
#pragma once

#include <span>

#include "wifi/settings/record.h"

/// The packages that a push writes to.
std::span<const char *const> wifi_written_packages();
/// False (logged) when another process holds a lock on a package that a push writes, for which the
/// loop must not stand still, or the package does not parse: a push is in force whole or not at
/// all.
[[nodiscard]] bool wifi_packages_can_be_changed();
/// Commits what is changed in any of a push's packages, as one; `changed`, unless null, says
/// whether anything was. 0, or -1 (logged): then nothing is changed and no change waits.
[[nodiscard]] int wifi_commit_packages(bool *changed);
/// The same; what is configured then is what the radios are set to.
[[nodiscard]] int wifi_commit_radio_settings();

/// Those settings, by their names in the record, that a mesh node is lost by when they are wrong.
struct wifi_air_settings {
    bool reg_outdoor;
    char reg_country[sizeof wifi_settings::reg_country];
    wifi_radio_settings radios[WIFI_RADIOS_MAX];
    char mesh_protocol[sizeof wifi_settings::mesh_protocol];
    int32_t hop_penalty;
    int32_t gw_stickiness;
    bool bridge_loop_avoidance;
    char mesh_key[sizeof wifi_settings::mesh_key];
    int32_t antenna_type;
};

/// What the radios are set to, which differs from the live record while a batch file waits.
const wifi_air_settings &wifi_in_force();
/// The radios were set to these settings.
void wifi_in_force_set(const wifi_settings &settings);
/// The radios were set to what is configured now.
void wifi_radios_now_in_force();
