// The settings record in the configuration: what is said there for other services, and the rest
// kept beside it.
#pragma once

#include "wifi/settings/record.h"

/// Keeps, in sections of our own package, every setting that the configuration does not say
/// otherwise. To be called when everything else is written; uncommitted.
void wifi_keep_settings(const wifi_settings &settings);
/// False (logged) when a package that says a setting is locked by another process or does not
/// parse; one that the device does not have says nothing.
[[nodiscard]] bool wifi_settings_can_be_read();
/// Reads a record back. What is kept counts before the configuration; without `with_kept` the
/// radio stage's settings are those of the configuration, which the radios have.
void wifi_read_settings(wifi_settings *settings, bool with_kept);
/// Reads those that are not the settings writer's.
void wifi_read_foreign_settings(wifi_settings *settings);
/// False (logged) when a text holds a character that no configuration line can hold.
[[nodiscard]] bool wifi_settings_can_be_written(const wifi_settings &settings);
