// The rows of the settings in the configuration: written for other services, kept beside it where
// no option says them, read back.
#pragma once

#include <string>

#include "wifi/settings/fields.h"

struct ng_uci_batch;

/// A part of the record with its rows, and the numbers that stand in the names of its options; -1:
/// there is no such option.
struct wifi_part {
    std::span<const wifi_field> rows;
    char *record;
    std::string kept; ///< section of the daemon's own package
    int radio = -1, dfs_radio = -1, ssid = -1, band = -1;
};

/// What all radios share, as the options of one radio say it; `dfs_radio` is -1 unless it has DFS.
wifi_part wifi_node_part(const wifi_settings &settings, int radio, int dfs_radio);
wifi_part wifi_radio_part(const wifi_settings &settings, int radio);
/// An SSID (1..4), on one radio.
wifi_part wifi_ssid_part(const wifi_settings &settings, int ssid, int radio);
wifi_part wifi_band_part(const wifi_settings &settings, int ssid, int band);
wifi_part wifi_dhcp_part(const wifi_settings &settings, int ssid);

/// Writes the part's plain options of one section, named as in the rows ("wireless.ap%d_%d").
void fields_write(const wifi_part &part, const char *section);
/// As above, those of the radio stage, to its batch file.
void fields_stage(ng_uci_batch *batch, const wifi_part &part, const char *section);

// Of the whole record

/// Keeps, in sections of the daemon's own package, every setting that no option says. To be called
/// when everything else is written; uncommitted.
void wifi_keep_settings(const wifi_settings &settings);
/// False (logged) when a package that says a setting is locked by another process or does not
/// parse; one that the device does not have says nothing.
[[nodiscard]] bool wifi_settings_can_be_read();
/// Reads every setting. What is kept counts before the options.
void wifi_read_settings(wifi_settings *settings);
/// Reads those of the radio stage as the options say them, which the radios have.
void wifi_read_staged_settings(wifi_settings *settings);
/// Reads those that are not the settings writer's.
void wifi_read_foreign_settings(wifi_settings *settings);
/// False (logged) when a text holds a character that no configuration line can hold.
[[nodiscard]] bool wifi_settings_can_be_written(const wifi_settings &settings);
