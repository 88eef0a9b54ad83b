// The rows of the wired settings document and what they cannot say. A value outside its row's
// limits refuses the document.
#include "wired/wired_settings.h"

#include <cctype>
#include <cstring>

#include "platform/zu/host_list.h"
#include "platform/zu/log.h"
#include "wifi/settings/record.h"

constexpr size_t URL_MAX = 255;
constexpr size_t IFACE_NAME_MAX = 15;

static bool is_url(const char *text)
{
    if (strncmp(text, "http://", 7) != 0 && strncmp(text, "https://", 8) != 0)
        return false;
    for (const char *c = text; *c != '\0'; c++) {
        if (isgraph(static_cast<unsigned char>(*c)) == 0)
            return false;
    }
    return strlen(text) <= URL_MAX && strstr(text, "//")[2] != '\0';
}

static bool is_bridge_name(const char *text)
{
    static constexpr char ALLOWED[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    return strlen(text) <= IFACE_NAME_MAX && strspn(text, ALLOWED) == strlen(text);
}

constexpr settings_limits TARGETS = {.takes = is_url,
                                     .pattern = "^(http://[!-~]{1,248}|https://[!-~]{1,247})$",
                                     .items_max = HOST_LIST_MAX,
                                     .rule = "an http or https URL of up to 255 bytes"};
constexpr settings_limits TOLERANCE = {.min = 1, .max = 1000};
constexpr settings_limits INTERVAL = {.min = 0, .max = 24 * 60 * 60};
constexpr settings_limits BRIDGE = {
    .takes = is_bridge_name,
    .pattern = "^[A-Za-z0-9._-]{0,15}$",
    .rule = "up to 15 letters, digits, points, underscores and hyphens"};
constexpr settings_limits SLOT = {.min = 0, .max = WIFI_SSIDS};

constexpr settings_field INET_TEST_ROWS[] = {
    {.key = "targets",
     .kind = SETTINGS_STRINGS,
     .limits = &TARGETS,
     .meaning = "what the internet test connects to, replacing the list",
     .error = "'targets' may only hold http and https URLs; 'targets' may hold %d URLs, not %zu"},
    {.key = "failure_tolerance",
     .kind = SETTINGS_INT,
     .limits = &TOLERANCE,
     .meaning = "failed cycles before the upstream counts as lost",
     .error = "'failure_tolerance' must be %d to %d, not %d"},
    {.key = "test_interval",
     .kind = SETTINGS_INT,
     .limits = &INTERVAL,
     .meaning = "seconds between cycles; 0: no test",
     .error = "'test_interval' must be %d to %d, not %d"},
};
constexpr auto INET_TEST_POLICY = settings_policy(INET_TEST_ROWS);
constexpr settings_level INET_TEST = {"inet_test", "Unable to parse inet_test arguments",
                                      INET_TEST_ROWS, INET_TEST_POLICY, true};

constexpr settings_field CLIENT_ROWS[] = {
    {.key = "disable", .kind = SETTINGS_BOOL, .meaning = "no client behind the wired port"},
    {.key = "ssid",
     .kind = SETTINGS_INT,
     .limits = &SLOT,
     .meaning = "the network that a client behind the wired port joins; 0: none",
     .error = "'ssid' must be %d to %d, not %d"},
};
constexpr auto CLIENT_POLICY = settings_policy(CLIENT_ROWS);
constexpr settings_level CLIENT = {"wired_client", "Unable to parse wired_client arguments",
                                   CLIENT_ROWS, CLIENT_POLICY, true};

constexpr settings_field TOP_ROWS[] = {
    {.key = "inet_test",
     .kind = SETTINGS_TABLE,
     .level = &INET_TEST,
     .meaning = "the internet test"},
    {.key = "lan_bridge",
     .kind = SETTINGS_STRING,
     .limits = &BRIDGE,
     .meaning = "bridge of the wired LAN; empty: none",
     .error = "'lan_bridge' is no interface name"},
    {.key = "wired_client",
     .kind = SETTINGS_TABLE,
     .level = &CLIENT,
     .meaning = "clients behind the wired port"},
    {.key = "igmp_proxy", .kind = SETTINGS_BOOL, .meaning = "the multicast proxy runs"},
};
constexpr auto TOP_POLICY = settings_policy(TOP_ROWS);
constinit const settings_level WIRED_SETTINGS_TOP = {"params", "Unable to parse arguments",
                                                     TOP_ROWS, TOP_POLICY, true};

/// An integer within its row's limits; false (logged) when it is outside.
static bool parse_int(const settings_values &values, const char *key, std::optional<int> *out)
{
    blob_attr *attr = values.get(key);
    if (!attr)
        return true;
    const int value = static_cast<int>(blobmsg_get_u32(attr));
    if (!values.fits(key)) {
        const settings_limits &limits = *settings_row(*values.level, key).limits;
        log_error("'%s' must be %d to %d, not %d", key, limits.min, limits.max, value);
        return false;
    }
    *out = value;
    return true;
}

static void parse_bool(blob_attr *attr, std::optional<bool> *out)
{
    if (attr)
        *out = blobmsg_get_bool(attr);
}

static bool parse_targets(const settings_values &values, wired_settings *settings)
{
    blob_attr *array = values.get("targets");
    if (!array)
        return true;
    const settings_field &row = settings_row(INET_TEST, "targets");
    settings->targets.emplace();
    blob_attr *target;
    size_t rem;
    blobmsg_for_each_attr(target, array, rem)
    {
        if (!blobmsg_check_attr(target, false) || blobmsg_type(target) != BLOBMSG_TYPE_STRING ||
            settings_value_fault(row, target) != SETTINGS_FITS) {
            log_error("'targets' may only hold http and https URLs");
            return false;
        }
        settings->targets->push_back(blobmsg_get_string(target));
    }
    if (settings->targets->size() <= HOST_LIST_MAX)
        return true;
    log_error("'targets' may hold %d URLs, not %zu", HOST_LIST_MAX, settings->targets->size());
    return false;
}

static bool parse_inet_test(blob_attr *table, wired_settings *settings)
{
    settings_values values;
    if (!table)
        return true;
    return settings_parse_level(INET_TEST, table, &values) && parse_targets(values, settings) &&
           parse_int(values, "failure_tolerance", &settings->failure_tolerance) &&
           parse_int(values, "test_interval", &settings->test_interval);
}

static bool parse_wired_client(blob_attr *table, wired_settings *settings)
{
    settings_values values;
    if (!table)
        return true;
    if (!settings_parse_level(CLIENT, table, &values))
        return false;
    parse_bool(values.get("disable"), &settings->client_disable);
    return parse_int(values, "ssid", &settings->client_ssid);
}

static bool parse_lan_bridge(const settings_values &values, wired_settings *settings)
{
    if (!values.fits("lan_bridge")) {
        log_error("'lan_bridge' is no interface name");
        return false;
    }
    if (blob_attr *attr = values.get("lan_bridge"))
        settings->lan_bridge = blobmsg_get_string(attr);
    return true;
}

bool wired_settings_parse(blob_attr *params, wired_settings *settings)
{
    settings_values values;
    if (!settings_parse_level(WIRED_SETTINGS_TOP, params, &values))
        return false;
    parse_bool(values.get("igmp_proxy"), &settings->igmp_proxy);
    return parse_inet_test(values.get("inet_test"), settings) &&
           parse_lan_bridge(values, settings) &&
           parse_wired_client(values.get("wired_client"), settings);
}
