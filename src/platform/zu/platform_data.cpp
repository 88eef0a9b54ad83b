// The board's facts from its JSON file. A member that is missing or of the wrong type is as absent;
// what absence means, each question says.
#include "platform/zu/platform_data.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <json-c/json.h>
#include <memory>
#include <optional>
#include <vector>

#include "platform/zu/file.h"
#include "platform/zu/log.h"

constexpr const char *PLATFORM_FILE = "/etc/tarn/platform.json";
constexpr std::size_t PLATFORM_FILE_MAX = 64 * 1024;

struct platform_data {
    std::optional<std::string> model;
    std::optional<std::string> ctl_variant;
    std::optional<std::string> management_mac;
    std::optional<int> num_radios;
    bool dfs_support = false;
    bool scanning_support = false;
    std::optional<std::vector<std::string>> radio_bands; // "" for a radio that names none
    bool radio_count_missed = false;                     // and that was said
    bool radio_bands_missed = false;
};

static constinit platform_data gPlatform;

struct json_deleter {
    void operator()(json_object *object) const { json_object_put(object); }
    void operator()(json_tokener *tokener) const { json_tokener_free(tokener); }
};
using json_handle = std::unique_ptr<json_object, json_deleter>;
using tokener_handle = std::unique_ptr<json_tokener, json_deleter>;

/// The member when it has that type; one of another type is logged.
static json_object *member(json_object *object, const char *name, json_type type)
{
    json_object *value = nullptr;
    if (!json_object_object_get_ex(object, name, &value))
        return nullptr;
    if (json_object_is_type(value, type))
        return value;
    log_warning("Platform data: '%s' has the wrong type, ignoring it", name);
    return nullptr;
}

static std::optional<std::string> text_member(json_object *object, const char *name)
{
    json_object *value = member(object, name, json_type_string);
    if (!value)
        return std::nullopt;
    return json_object_get_string(value);
}

static bool flag_member(json_object *object, const char *name)
{
    json_object *value = member(object, name, json_type_boolean);
    return value && json_object_get_boolean(value);
}

static std::optional<int> count_member(json_object *object, const char *name)
{
    json_object *value = member(object, name, json_type_int);
    if (!value)
        return std::nullopt;
    const int64_t count = json_object_get_int64(value);
    if (count < 0 || count > INT_MAX) {
        log_warning("Platform data: '%s' is out of range, ignoring it", name);
        return std::nullopt;
    }
    return static_cast<int>(count);
}

static std::optional<std::vector<std::string>> radio_bands(json_object *wireless)
{
    json_object *radios = member(wireless, "wifi_radios", json_type_array);
    if (!radios)
        return std::nullopt;
    std::vector<std::string> bands;
    for (std::size_t i = 0; i < json_object_array_length(radios); i++) {
        json_object *radio = json_object_array_get_idx(radios, i);
        bands.push_back(text_member(radio, "band").value_or(""));
    }
    return bands;
}

static void _parse_platform_wireless(json_object *wireless, platform_data &data)
{
    data.num_radios = count_member(wireless, "num_radios");
    data.dfs_support = flag_member(wireless, "dfs_support");
    data.scanning_support = flag_member(wireless, "scanning_support");
    data.radio_bands = radio_bands(wireless);
}

/// The whole text as one JSON object, or null (logged).
static json_handle parse_object(const char *json_text)
{
    const std::size_t length = strlen(json_text);
    if (length > PLATFORM_FILE_MAX) {
        log_error("Platform data is larger than %zu bytes", PLATFORM_FILE_MAX);
        return nullptr;
    }
    const tokener_handle tokener(json_tokener_new());
    if (!tokener)
        return nullptr;
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);
    // With its final NUL, so that the tokener sees the end of the text.
    json_handle root(json_tokener_parse_ex(tokener.get(), json_text, static_cast<int>(length + 1)));
    if (root && json_object_is_type(root.get(), json_type_object))
        return root;
    log_error("Failed to parse platform data: %s",
              root ? "not an object"
                   : json_tokener_error_desc(json_tokener_get_error(tokener.get())));
    return nullptr;
}

static const char *text_or_null(const std::optional<std::string> &text)
{
    return text ? text->c_str() : nullptr;
}

/// Without a description every member is missing, which has been said with it.
static void forget_board()
{
    gPlatform = {};
    gPlatform.radio_count_missed = gPlatform.radio_bands_missed = true;
}

/// Says that a member is missing: in the log once, as it stays missing, and to each caller who
/// collects the errors of what it asked for.
static void miss_wireless_member(const char *name, bool *said)
{
    if (!*said || gDebug_error_listener)
        log_error("Wireless platform data has no %s member", name);
    *said = true;
}

void platform_detect()
{
    std::string text(PLATFORM_FILE_MAX + 1, '\0'); // one byte more shows that it is too large
    const ssize_t length = file_read_bin(PLATFORM_FILE, text.data(), text.size());
    if (length < 0) {
        log_error("Failed to read platform data from %s: %s", PLATFORM_FILE, strerror(errno));
        forget_board();
        return;
    }
    text.resize(static_cast<std::size_t>(length));
    (void)_parse_platform_data(text.c_str());
}

bool _parse_platform_data(const char *json_text)
{
    const json_handle root = parse_object(json_text);
    if (!root) {
        forget_board();
        return false;
    }
    gPlatform = {};
    gPlatform.model = text_member(root.get(), "model");
    gPlatform.ctl_variant = text_member(root.get(), "ctl_variant");
    gPlatform.management_mac = text_member(root.get(), "management_mac");
    if (json_object *wireless = member(root.get(), "wireless", json_type_object))
        _parse_platform_wireless(wireless, gPlatform);
    return true;
}

const char *get_platform_ctl_variant()
{
    return text_or_null(gPlatform.ctl_variant);
}

const char *platform_get_model()
{
    return text_or_null(gPlatform.model);
}

const char *platform_get_management_mac()
{
    return text_or_null(gPlatform.management_mac);
}

int platform_wireless_get_num_radios()
{
    if (gPlatform.num_radios)
        return *gPlatform.num_radios;
    miss_wireless_member("num_radios", &gPlatform.radio_count_missed);
    return -1;
}

int platform_wireless_get_radio_idx(const char *band)
{
    if (!gPlatform.radio_bands) {
        miss_wireless_member("wifi_radios", &gPlatform.radio_bands_missed);
        return -1;
    }
    const std::vector<std::string> &bands = *gPlatform.radio_bands;
    for (std::size_t i = 0; i < bands.size(); i++)
        if (!bands[i].empty() && bands[i] == band)
            return static_cast<int>(i);
    return -1;
}

const char *platform_wireless_get_radio_band_name(int index)
{
    if (!gPlatform.radio_bands) {
        miss_wireless_member("wifi_radios", &gPlatform.radio_bands_missed);
        return nullptr;
    }
    const std::vector<std::string> &bands = *gPlatform.radio_bands;
    if (index < 0 || static_cast<std::size_t>(index) >= bands.size() ||
        bands[static_cast<std::size_t>(index)].empty()) {
        log_error("Invalid radio index %d", index);
        return nullptr;
    }
    return bands[static_cast<std::size_t>(index)].c_str();
}

bool platform_wireless_get_dfs_support()
{
    return gPlatform.dfs_support;
}

bool platform_wireless_get_scanning_support()
{
    return gPlatform.scanning_support;
}
