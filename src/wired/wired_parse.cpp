// The wired settings document: taken apart and checked whole, then written to UCI, then put into
// force. A document with any fault changes nothing.
//
//   params  inet_test    targets ARRAY of URLs, failure_tolerance INT32, test_interval INT32
//           lan_bridge   STRING, empty for none
//           wired_client disable INT8, ssid INT32 (0 none, 1..4)
//           igmp_proxy   INT8
//
// What a document omits stays as it is.
#include <cctype>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "platform/zu/host_list.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/wifi_settings.h"
#include "wired/inet_test.h"
#include "wired/wired.h"

constexpr int FAILURE_TOLERANCE_MAX = 1000;
constexpr int TEST_INTERVAL_MAX_S = 24 * 60 * 60;
constexpr size_t URL_MAX = 255;
constexpr char TEST_SECTION[] = "tarn_net.inet_test_config";
constexpr char WIRED_SECTION[] = "tarn_net.wired";
constexpr char PROXY_SECTION[] = "igmpproxy.igmpproxy";

struct wired_settings {
    std::optional<std::vector<const char *>> targets;
    std::optional<int> failure_tolerance, test_interval;
    const char *lan_bridge;
    std::optional<bool> client_disable;
    std::optional<int> client_ssid;
    std::optional<bool> igmp_proxy;
};

/// Takes a table apart by the policy; false when it is malformed.
template <size_t N>
static bool parse_table(const blobmsg_policy (&policy)[N], blob_attr *(&tb)[N], blob_attr *table)
{
    return blobmsg_parse(policy, N, tb, blobmsg_data(table),
                         static_cast<unsigned>(blobmsg_len(table))) == 0;
}

/// An integer of the document within its range; false (logged) when it is outside.
static bool take_int(blob_attr *attr, int least, int most, std::optional<int> *out)
{
    if (attr == nullptr)
        return true;
    const int value = static_cast<int>(blobmsg_get_u32(attr));
    if (value < least || value > most) {
        log_error("'%s' must be %d to %d, not %d", blobmsg_name(attr), least, most, value);
        return false;
    }
    *out = value;
    return true;
}

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

static bool take_targets(blob_attr *array, wired_settings *settings)
{
    if (array == nullptr)
        return true;
    settings->targets.emplace();
    blob_attr *target;
    size_t rem;
    blobmsg_for_each_attr(target, array, rem)
    {
        if (!blobmsg_check_attr(target, false) || blobmsg_type(target) != BLOBMSG_TYPE_STRING ||
            !is_url(blobmsg_get_string(target))) {
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

static bool take_inet_test(blob_attr *table, wired_settings *settings)
{
    enum { TARGETS, TOLERANCE, INTERVAL, MEMBERS };
    static const blobmsg_policy policy[MEMBERS] = {
        {"targets", BLOBMSG_TYPE_ARRAY},
        {"failure_tolerance", BLOBMSG_TYPE_INT32},
        {"test_interval", BLOBMSG_TYPE_INT32},
    };
    if (table == nullptr)
        return true;
    blob_attr *tb[MEMBERS];
    if (!parse_table(policy, tb, table)) {
        log_error("Unable to parse inet_test arguments");
        return false;
    }
    return take_targets(tb[TARGETS], settings) &&
           take_int(tb[TOLERANCE], 1, FAILURE_TOLERANCE_MAX, &settings->failure_tolerance) &&
           take_int(tb[INTERVAL], 0, TEST_INTERVAL_MAX_S, &settings->test_interval);
}

static bool take_wired_client(blob_attr *table, wired_settings *settings)
{
    enum { DISABLE, SSID, MEMBERS };
    static const blobmsg_policy policy[MEMBERS] = {
        {"disable", BLOBMSG_TYPE_INT8},
        {"ssid", BLOBMSG_TYPE_INT32},
    };
    if (table == nullptr)
        return true;
    blob_attr *tb[MEMBERS];
    if (!parse_table(policy, tb, table)) {
        log_error("Unable to parse wired_client arguments");
        return false;
    }
    if (tb[DISABLE] != nullptr)
        settings->client_disable = blobmsg_get_bool(tb[DISABLE]);
    return take_int(tb[SSID], 0, WIFI_SSIDS, &settings->client_ssid);
}

static bool take_lan_bridge(blob_attr *attr, wired_settings *settings)
{
    if (attr == nullptr)
        return true;
    const char *name = blobmsg_get_string(attr);
    if (strlen(name) > 15 || strspn(name, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                          "0123456789._-") != strlen(name)) {
        log_error("'lan_bridge' is no interface name");
        return false;
    }
    settings->lan_bridge = name;
    return true;
}

static bool take_document(blob_attr *params, wired_settings *settings)
{
    enum { INET_TEST, LAN_BRIDGE, WIRED_CLIENT, IGMP_PROXY, MEMBERS };
    static const blobmsg_policy policy[MEMBERS] = {
        {"inet_test", BLOBMSG_TYPE_TABLE},
        {"lan_bridge", BLOBMSG_TYPE_STRING},
        {"wired_client", BLOBMSG_TYPE_TABLE},
        {"igmp_proxy", BLOBMSG_TYPE_INT8},
    };
    blob_attr *tb[MEMBERS];
    if (!parse_table(policy, tb, params)) {
        log_error("Unable to parse arguments");
        return false;
    }
    if (tb[IGMP_PROXY] != nullptr)
        settings->igmp_proxy = blobmsg_get_bool(tb[IGMP_PROXY]);
    return take_inet_test(tb[INET_TEST], settings) && take_lan_bridge(tb[LAN_BRIDGE], settings) &&
           take_wired_client(tb[WIRED_CLIENT], settings);
}

template <typename T>
static int save_int(const std::optional<T> &value, const char *section, const char *option)
{
    return value ? ng_uci_save_action_int_ctx(ng_uci_change_context(), uci_set_string, *value,
                                              "%s.%s", section, option)
                 : 0;
}

static int save_section(const char *section, const char *type)
{
    return ng_uci_exists("%s", section)
               ? 0
               : ng_uci_save_action_ctx(ng_uci_change_context(), uci_set_string, type, "%s",
                                        section);
}

static int save_targets(const std::vector<const char *> &targets)
{
    uci_context *ctx = ng_uci_change_context();
    constexpr char OPTION[] = "inet_test_targets";
    if (ng_uci_exists("%s.%s", TEST_SECTION, OPTION) &&
        ng_uci_save_action_ctx(ctx, ng_uci_delete_option, nullptr, "%s.%s", TEST_SECTION, OPTION))
        return -1;
    for (const char *target : targets) {
        if (ng_uci_save_action_ctx(ctx, ng_uci_add_list, target, "%s.%s", TEST_SECTION, OPTION))
            return -1;
    }
    return 0;
}

static int save_lan_bridge(const char *bridge)
{
    uci_context *ctx = ng_uci_change_context();
    if (bridge[0] != '\0')
        return ng_uci_save_action_ctx(ctx, uci_set_string, bridge, "%s.lan_bridge", WIRED_SECTION);
    if (!ng_uci_exists("%s.lan_bridge", WIRED_SECTION))
        return 0;
    return ng_uci_save_action_ctx(ctx, ng_uci_delete_option, nullptr, "%s.lan_bridge",
                                  WIRED_SECTION);
}

static bool save(const wired_settings &settings)
{
    return save_section(TEST_SECTION, "inet_test") == 0 &&
           save_section(WIRED_SECTION, "wired") == 0 &&
           save_section(PROXY_SECTION, "igmpproxy") == 0 &&
           (!settings.targets || save_targets(*settings.targets) == 0) &&
           save_int(settings.failure_tolerance, TEST_SECTION, "failure_tolerance") == 0 &&
           save_int(settings.test_interval, TEST_SECTION, "test_interval") == 0 &&
           (settings.lan_bridge == nullptr || save_lan_bridge(settings.lan_bridge) == 0) &&
           save_int(settings.client_disable, WIRED_SECTION, "disable_wired_client") == 0 &&
           save_int(settings.client_ssid, WIRED_SECTION, "wired_client_ssid") == 0 &&
           save_int(settings.igmp_proxy, PROXY_SECTION, "enable") == 0 &&
           ng_uci_commit("tarn_net") == 0 && ng_uci_commit("igmpproxy") == 0;
}

int wired_parse_config(ubus_context *, blob_attr *msg, blob_buf *)
{
    static const blobmsg_policy policy[1] = {{"params", BLOBMSG_TYPE_TABLE}};
    blob_attr *params = nullptr;
    if (msg != nullptr)
        (void)blobmsg_parse(policy, 1, &params, blob_data(msg),
                            static_cast<unsigned>(blob_len(msg)));
    if (params == nullptr) {
        log_error("%s is NULL", "params");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    wired_settings settings{};
    if (!take_document(params, &settings))
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (!save(settings)) {
        log_error("Failed to write the wired settings");
        (void)ng_uci_revert("tarn_net");
        (void)ng_uci_revert("igmpproxy");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    return reload_inet_test_config();
}
