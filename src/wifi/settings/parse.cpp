// The settings document, section by section, in the document's order. All-or-nothing: everything is
// written into a copy of the live record, which the caller drops on the first error. What a value
// must be is in the rows of document.cpp; here is what the rows cannot say.

#include "wifi/settings/parse.h"

#include <algorithm>
#include <cstring>

#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"
#include "wifi/override.h"
#include "wifi/settings/log_json.h"
#include "wifi/settings/parse_internal.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

constexpr int SECONDS_PER_MINUTE = 60;

static bool wifid_parse_batman(blob_attr *table, wifi_settings *settings)
{
    settings_values values;
    if (!settings_parse_level(SETTINGS_BATMAN, table, &values))
        return false;
    settings_store(values, settings);
    return true;
}

static bool wifid_parse_mesh(blob_attr *table, wifi_settings *settings)
{
    settings_log_json(SETTINGS_MESH, table);
    settings_values values;
    if (!settings_parse_level(SETTINGS_MESH, table, &values))
        return false;
    settings_store(values, settings);
    blob_attr *batman = values.get("batman");
    if (batman && !wifid_parse_batman(batman, settings)) {
        log_error("Unable to parse batman settings");
        return false;
    }
    return true;
}

static void parse_dfs_channels(blob_attr *array, wifi_settings *settings)
{
    memset(settings->dfs_channels, 0, sizeof(settings->dfs_channels));
    settings->dfs_channel_count = 0;
    blob_attr *element;
    size_t rest;
    blobmsg_for_each_attr(element, array, rest)
    {
        if (blobmsg_type(element) != BLOBMSG_TYPE_INT32)
            continue;
        if (settings->dfs_channel_count == WIFI_DFS_CHANNELS_MAX)
            return;
        settings->dfs_channels[settings->dfs_channel_count++] =
            static_cast<int32_t>(blobmsg_get_u32(element));
    }
}

static bool wifid_parse_dfs(blob_attr *table, wifi_settings *settings)
{
    settings_values values;
    if (!settings_parse_level(SETTINGS_DFS, table, &values))
        return false;
    settings_store(values, settings);
    if (blob_attr *channels = values.get("channels"))
        parse_dfs_channels(channels, settings);
    return true;
}

static bool wifid_parse_reg(blob_attr *table, wifi_settings *settings)
{
    settings_values values;
    if (!settings_parse_level(SETTINGS_REGULATORY, table, &values))
        return false;
    settings_store(values, settings);
    if (blob_attr *attr = values.get("country")) {
        const char *country = blobmsg_get_string(attr);
        if (!values.fits("country")) {
            log_error("Got incorrect length for country '%s'", country);
            return false;
        }
        strcpy(settings->reg_country, country);
    }
    blob_attr *dfs = values.get("dfs");
    if (dfs && !wifid_parse_dfs(dfs, settings)) {
        log_error("Failed to parse DFS");
        return false;
    }
    return true;
}

static bool wifid_parse_radio(blob_attr *table, wifi_settings *settings)
{
    settings_values values;
    if (!settings_parse_level(SETTINGS_RADIO, table, &values))
        return false;
    blob_attr *band_attr = values.get("band");
    if (!band_attr) {
        log_error("Failed to find 'band' key in msg");
        return false;
    }
    char band[16];
    settings_store_text(band, sizeof(band), blobmsg_get_string(band_attr));
    if (wifid_find_band_by_type(band) == WIFI_BAND_SCANNING) {
        log_debug("Skipping scanning radio");
        return true;
    }
    const int index = platform_wireless_get_radio_idx(band);
    if (index < 0 || index >= wifi_radio_count()) {
        log_error("invalid radio index: %d", index);
        return false;
    }
    wifi_radio_settings &radio = settings->radios[index];
    settings_store(values, &radio);
    // Also when the document does not set it: a radio is never configured with a bad channel.
    if (!wifi_channel_is_valid(radio.channel)) {
        log_error("invalid channel: %d", static_cast<int>(radio.channel));
        return false;
    }
    return true;
}

/// Parses every element of an array with `parse`.
static bool parse_elements(blob_attr *array, wifi_settings *settings,
                           bool (*parse)(blob_attr *, wifi_settings *))
{
    blob_attr *element;
    size_t rest;
    blobmsg_for_each_attr(element, array, rest)
    {
        if (!parse(element, settings))
            return false;
    }
    return true;
}

static bool check_neighbors(blob_attr *array, wifi_settings *)
{
    return wifi_check_neighbors(array) == 0;
}

static bool parse_radios(blob_attr *array, wifi_settings *settings)
{
    return parse_elements(array, settings, wifid_parse_radio);
}

static bool parse_ssids(blob_attr *array, wifi_settings *settings)
{
    return parse_elements(array, settings, wifid_parse_ssid);
}

// The sections that have code of their own, in the order they are taken, each with the line that
// names it when it fails.
struct section {
    const char *key;
    bool (*parse)(blob_attr *value, wifi_settings *settings);
    const char *failed;
};

constexpr section SECTIONS[] = {
    {"mesh", wifid_parse_mesh, "Failed to parse mesh data"},
    {"regulatory", wifid_parse_reg, "Failed to parse regulatory data"},
    {"radios", parse_radios, "Failed to parse radios data"},
    {"ssids", parse_ssids, "Failed to parse ssids data"},
    {"neighbors", check_neighbors, "Failed to parse neighbor list"},
};

static bool parse_sections(const settings_values &values, wifi_settings *settings)
{
    for (const section &part : SECTIONS) {
        blob_attr *value = values.get(part.key);
        if (!value || part.parse(value, settings))
            continue;
        log_error("%s", part.failed);
        return false;
    }
    return true;
}

static void parse_antenna_type(blob_attr *attr, wifi_settings *settings)
{
    if (!attr)
        return;
    const auto words = settings_row(SETTINGS_TOP, "antenna_type").limits->words;
    for (size_t i = 0; i < words.size(); i++)
        if (strcmp(blobmsg_get_string(attr), words[i]) == 0)
            settings->antenna_type = static_cast<int32_t>(i + 1);
}

static void parse_scanning_period(blob_attr *attr, wifi_settings *settings)
{
    // The product is taken modulo 2^32, as the 32-bit field holds it.
    if (attr)
        settings->scanning_period =
            static_cast<int32_t>(blobmsg_get_u32(attr) * SECONDS_PER_MINUTE);
}

bool wifi_channel_is_valid(uint32_t channel)
{
    return settings_number_fault(*settings_row(SETTINGS_RADIO, "channel").limits,
                                 static_cast<int32_t>(channel)) == SETTINGS_FITS;
}

int wifid_find_radio(int band)
{
    if (band < 0 || band >= WIFI_BANDS) {
        log_error("invalid band index: %d", band);
        return -1;
    }
    return platform_wireless_get_radio_idx(wifi_band_name(band));
}

int wifi_settings_parse(blob_attr *params, wifi_parsed_document *parsed)
{
    wifi_settings *settings = parsed->settings;
    parsed->override_reason = nullptr;
    settings_values values;
    if (!settings_parse_level(SETTINGS_TOP, params, &values))
        return UBUS_STATUS_INVALID_ARGUMENT;
    settings_store(values, settings);
    settings->ap_scan = false;
    if (!parse_sections(values, settings))
        return UBUS_STATUS_INVALID_ARGUMENT;
    parsed->neighbors = values.get("neighbors");
    parse_scanning_period(values.get("scanning_period"), settings);
    settings->save_orphans = values.get("save_orphans") != nullptr;
    if (!wifi_override_parse(values, parsed))
        return UBUS_STATUS_INVALID_ARGUMENT;
    parse_antenna_type(values.get("antenna_type"), settings);
    return 0;
}
