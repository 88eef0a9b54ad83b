// The wired settings document put into force: written to UCI as a whole, then services are reloaded
// and the internet test takes what is new to it. A document with any fault changes nothing; what a
// document omits stays as it is.
#include <string>
#include <vector>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wired/inet_probe.h"
#include "wired/upstream.h"
#include "wired/wired.h"
#include "wired/wired_settings.h"

constexpr char TEST_SECTION[] = "tarn_net.inet_test_config";
constexpr char WIRED_SECTION[] = "tarn_net.wired";
constexpr char PROXY_SECTION[] = "igmpproxy.igmpproxy";
constexpr const char *PACKAGES[] = {"tarn_net", "igmpproxy"};

template <typename T>
static bool save_int(const std::optional<T> &value, const char *section, const char *option)
{
    return !value || ng_uci_put(ng_uci_name("%s.%s", section, option), *value);
}

static bool save_section(const char *section, const char *type)
{
    return ng_uci_exists("%s", section) || ng_uci_put(section, type);
}

static bool save_targets(const std::vector<const char *> &targets)
{
    const std::string option = ng_uci_name("%s.inet_test_targets", TEST_SECTION);
    if (ng_uci_exists("%s", option.c_str()) && !ng_uci_clear(option))
        return false;
    for (const char *target : targets)
        if (!ng_uci_add(option, target))
            return false;
    return true;
}

static bool save_lan_bridge(const char *bridge)
{
    const std::string option = ng_uci_name("%s.lan_bridge", WIRED_SECTION);
    if (bridge[0] != '\0')
        return ng_uci_put(option, bridge);
    return !ng_uci_exists("%s", option.c_str()) || ng_uci_clear(option);
}

/// `changed`: something of it was not configured already.
static bool save(const wired_settings &settings, bool *changed)
{
    const bool test = settings.targets || settings.failure_tolerance || settings.test_interval;
    const bool wired = settings.lan_bridge || settings.client_disable || settings.client_ssid;
    return ng_uci_make_package("tarn_net") == 0 &&
           (!test || save_section(TEST_SECTION, "inet_test")) &&
           (!wired || save_section(WIRED_SECTION, "wired")) &&
           (!settings.igmp_proxy || save_section(PROXY_SECTION, "igmpproxy")) &&
           (!settings.targets || save_targets(*settings.targets)) &&
           save_int(settings.failure_tolerance, TEST_SECTION, "failure_tolerance") &&
           save_int(settings.test_interval, TEST_SECTION, "test_interval") &&
           (!settings.lan_bridge || save_lan_bridge(settings.lan_bridge)) &&
           save_int(settings.client_disable, WIRED_SECTION, "disable_wired_client") &&
           save_int(settings.client_ssid, WIRED_SECTION, "wired_client_ssid") &&
           save_int(settings.igmp_proxy, PROXY_SECTION, "enable") &&
           ng_uci_commit_all(PACKAGES, changed) == 0;
}

int wired_parse_config(ubus_context *, blob_attr *msg, blob_buf *)
{
    blob_attr *params = zu_blobmsg_member(msg, {"params", BLOBMSG_TYPE_TABLE});
    if (!params) {
        log_error("%s is NULL", "params");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    settings_explain_passed_over(WIRED_SETTINGS_TOP, params);
    wired_settings settings{};
    if (!wired_settings_parse(params, &settings))
        return UBUS_STATUS_INVALID_ARGUMENT;
    bool changed = false;
    if (!save(settings, &changed)) {
        log_error("Failed to write the wired settings");
        ng_uci_drop_changes();
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    if (changed && !run_reload_config())
        log_warning("Unable to reload what uses the wired settings");
    return inet_test_take_pushed_config();
}
