// The kinds of documents with their parsers, and what the platform allows in them.
#include "settings_kinds.h"

#include <memory>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "wifi/override.h"
#include "wifi/settings/document.h"
#include "wifi/settings/parse.h"
#include "wifi/wifi.h"
#include "wifi/write/fields_uci.h"
#include "wifi/write/writer.h"
#include "wired/wired.h"
#include "wired/wired_settings.h"

/// Parses for a node that has been configured before: its radios have channels.
static int parse_wifi(blob_attr *params)
{
    const auto settings = std::make_unique<wifi_settings>();
    for (wifi_radio_settings &radio : settings->radios)
        radio.channel = 36;
    wifi_parsed_document parsed = {settings.get(), nullptr, nullptr};
    if (wifi_settings_parse(params, &parsed) != 0)
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (wifi_settings_can_be_written(*settings))
        return 0;
    log_error("Failed to write uci batch config");
    return UBUS_STATUS_INVALID_ARGUMENT;
}

static int push_wifi(blob_attr *message)
{
    return wifi_parse_config(nullptr, message, nullptr);
}

/// Null also for a document that is refused: the push tells that.
static const char *wifi_reason(blob_attr *params)
{
    const auto settings = std::make_unique<wifi_settings>(*wifi_live_settings());
    wifi_parsed_document parsed = {settings.get(), nullptr, nullptr};
    if (wifi_settings_parse(params, &parsed) != 0)
        return nullptr;
    if (parsed.override_reason)
        wifi_set_radio_override(parsed.override_reason, settings.get());
    ng_uci_drop_changes();
    return wifi_at_once_reason(*settings);
}

static int parse_wired(blob_attr *params)
{
    wired_settings settings{};
    return wired_settings_parse(params, &settings) ? 0 : UBUS_STATUS_INVALID_ARGUMENT;
}

static int push_wired(blob_attr *message)
{
    return wired_parse_config(nullptr, message, nullptr);
}

static const char *wired_reason(blob_attr *)
{
    return "wired settings never wait";
}

constexpr document_kind KINDS[] = {
    {"wifi", "qnet.wifi", "Wireless settings", &SETTINGS_TOP, parse_wifi, push_wifi, wifi_reason},
    {"wired", "qnet.wired", "Wired settings", &WIRED_SETTINGS_TOP, parse_wired, push_wired,
     wired_reason},
};

constexpr int PLATFORM_RADIOS_MAX = 32;

/// The bands of the platform's radios that `is_wanted`, each once.
static std::vector<std::string> platform_bands(bool (*is_wanted)(const char *band))
{
    std::vector<std::string> bands;
    for (int radio = 0; radio < PLATFORM_RADIOS_MAX; radio++) {
        const char *band = platform_wireless_get_radio_band_name(radio);
        if (band && platform_wireless_get_radio_idx(band) == radio && is_wanted(band))
            bands.emplace_back(band);
    }
    return bands;
}

static std::vector<std::string> radios_in_use()
{
    const char *scanning = wifi_band_name(WIFI_BAND_SCANNING);
    std::vector<std::string> bands = platform_bands([](const char *band) {
        return wifid_find_band_by_type(band) != WIFI_BAND_SCANNING &&
               platform_wireless_get_radio_idx(band) < wifi_radio_count();
    });
    bands.emplace_back(scanning); // taken from any platform, and passed over
    return bands;
}

static std::vector<std::string> ssid_bands()
{
    std::vector<std::string> bands;
    for (int band = 0; band < WIFI_BANDS; band++)
        if (wifid_find_radio(band) >= 0)
            bands.emplace_back(wifi_band_name(band));
    return bands;
}

std::span<const document_kind> document_kinds()
{
    return KINDS;
}

uint32_t settings_text_max(const settings_field &field)
{
    return field.offset != SETTINGS_NO_MEMBER ? field.size - 1 : field.limits->text_max;
}

bool settings_is_kept(const settings_field &field)
{
    return settings_text_max(field) != UINT32_MAX;
}

std::vector<std::string> settings_choices(settings_choice choice)
{
    switch (choice) {
    case SETTINGS_ANY_TEXT:
        return {};
    case SETTINGS_RADIO_IN_USE:
        return radios_in_use();
    case SETTINGS_SSID_BAND:
        return ssid_bands();
    case SETTINGS_ANY_RADIO:
        return platform_bands([](const char *) { return true; });
    }
    return {};
}
