// The health check: what should be and is not. The facts are looked at every minute, so that an
// answer costs nothing and says since when; something that a restart of the radios explains counts
// only once it has lasted longer than one.
#include "wifi/health.h"

#include <algorithm>
#include <net/if.h>
#include <string>
#include <utility>
#include <vector>

#include "netlink/rtnl.h"
#include "platform/zu/clock.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

constexpr int LOOK_MS = 60000;
constexpr int TEST_INTERVALS = 3; ///< the last cycle is to be younger
/// However short they are: an enumeration of the interfaces holds the test up.
constexpr int64_t TEST_STALE_MIN_S = 60;

/// A kind of problem. It counts when it has been seen for `grace_s`.
struct health_kind {
    const char *id;
    int grace_s;
    const char *advice;
};

constexpr health_kind AP_MISSING = {
    "ap_missing", 90,
    "The access point is configured and its interface does not exist: see hostapd's and netifd's "
    "log, then 'ubus call qnet.wifi force_wifi_restart'."};
constexpr health_kind AP_DOWN = {
    "ap_down", 90,
    "The access point's interface exists and is down: see hostapd's log for what it refuses."};
constexpr health_kind HOSTAPD_MISSING = {
    "hostapd_missing", 90,
    "hostapd has not published this access point on the bus: see whether it runs and what its log "
    "says."};
constexpr health_kind MESH_MISSING = {
    "mesh_missing", 90,
    "The mesh is configured on this radio and its interface does not exist: see netifd's log and "
    "the radio's channel."};
constexpr health_kind MESH_DOWN = {
    "mesh_down", 90,
    "The mesh interface exists and is down: see wpa_supplicant's and netifd's log."};
constexpr health_kind BAT0_MISSING = {
    "bat0_missing", 90,
    "The mesh is on and batman-adv has no bat0: see whether its kernel module is loaded and "
    "section network.bat0 is there."};
constexpr health_kind NO_UPSTREAM = {
    "no_upstream", 120,
    "The node does not reach the internet: see the cable, the provider and, for a repeater, the "
    "nodes around it."};
constexpr health_kind TEST_OFF = {
    "internet_test_off", 0,
    "The internet is not tested: set tarn_net.inet_test_config, its targets and an interval."};
constexpr health_kind TEST_STALE = {
    "internet_test_stale", 0,
    "No internet test has ended for three intervals: see the log for what it waits for."};
constexpr health_kind SWITCH_INCOMPLETE = {
    "switch_incomplete", 60,
    "A step of the last change of upstream keeps failing and is tried again: the log names it."};
constexpr health_kind POWER = {
    "power_negotiation", 300,
    "The radios stay off until the power negotiation over LLDP is complete: see the switch port's "
    "power and the lldp daemon."};
constexpr health_kind U80211D_MISSING = {
    "u80211d_missing", 90,
    "The radio daemon u80211d is not on the bus, so there are no scans and surveys: see whether it "
    "runs."};
constexpr health_kind SETTINGS_UNREAD = {
    "settings_unread", 60,
    "The wireless settings cannot be read, and pushes are refused: the log names the package."};

struct health_problem {
    const health_kind *kind;
    std::string object;
    int64_t since_s; ///< zu_monotonic_s()
};

/// What was seen when the facts were looked at last, problems within their grace included.
static std::vector<health_problem> gSeen;
static uloop_timeout gTimer;

// ---- looking

using found_problems = std::vector<health_problem>;

static void note(found_problems *found, const health_kind &kind, std::string object)
{
    found->push_back({&kind, std::move(object), 0});
}

/// The interface, or the radio, is to be on now.
static bool is_enabled(const std::string &name)
{
    int value = 0;
    return ng_uci_get_int(&value, "wireless.%s.enable", name.c_str()) == 0 && value != 0;
}

/// Whether it exists, and is up; notes what is not so.
static void look_at_iface(found_problems *found, const std::string &name,
                          const health_kind &missing, const health_kind &down)
{
    if (if_nametoindex(name.c_str()) == 0)
        note(found, missing, name);
    else if (!ng_rtnl_iface_link_get_up(name.c_str(), true))
        note(found, down, name);
}

static void look_at_access_point(found_problems *found, const std::string &name)
{
    look_at_iface(found, name, AP_MISSING, AP_DOWN);
    const std::string object = "hostapd." + name;
    if (!wifi_hapd_is_known(object.c_str()))
        note(found, HOSTAPD_MISSING, object);
}

/// True when the radio is to carry the mesh.
static bool look_at_radio(found_problems *found, int radio)
{
    const std::string number = std::to_string(radio);
    if (wifi_radio_band_type(radio) == WIFI_BAND_SCANNING || !is_enabled("radio" + number))
        return false;
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        const std::string name = "ap" + number + "_" + std::to_string(ssid);
        if (is_enabled(name))
            look_at_access_point(found, name);
    }
    const std::string mesh = "mesh" + number;
    if (!is_enabled(mesh))
        return false;
    look_at_iface(found, mesh, MESH_MISSING, MESH_DOWN);
    return true;
}

static void look_at_radios(found_problems *found)
{
    bool mesh = false;
    for (int radio = 0; radio < wifi_radio_count(); radio++)
        mesh |= look_at_radio(found, radio);
    if (mesh && if_nametoindex("bat0") == 0)
        note(found, BAT0_MISSING, "bat0");
    if (wifi_lldp_keeps_interfaces_off())
        note(found, POWER, "qnet.lldp");
    if (wifi_u80211d_is_missing())
        note(found, U80211D_MISSING, "u80211d");
}

static void look_at_upstream(found_problems *found)
{
    const inet_test_state &test = node_state().inet_test;
    if (test.upstream_state == TARN_NET_UPSTREAM_NONE ||
        test.upstream_state == TARN_NET_LONELY_ORPHAN_STATE)
        note(found, NO_UPSTREAM, "upstream");
    if (upstream_is_incomplete())
        note(found, SWITCH_INCOMPLETE, "upstream");
    if (!inet_test_is_configured())
        note(found, TEST_OFF, "tarn_net.inet_test_config");
    else if (inet_test_seconds_since_verdict() >
             std::max(TEST_STALE_MIN_S,
                      int64_t{TEST_INTERVALS} * inet_test_settings().test_interval))
        note(found, TEST_STALE, "tarn_net.inet_test_config");
}

static bool is_same(const health_problem &a, const health_problem &b)
{
    return a.kind == b.kind && a.object == b.object;
}

/// What was seen before keeps its time.
static void look()
{
    const zu_log_repetition quiet;
    found_problems found;
    if (wifi_settings_are_read() && ng_uci_check_readable("wireless") != NG_UCI_UNREADABLE)
        look_at_radios(&found);
    else
        note(&found, SETTINGS_UNREAD, "qnet.wifi");
    look_at_upstream(&found);
    const int64_t now_s = zu_monotonic_s();
    for (health_problem &problem : found) {
        const auto before =
            std::find_if(gSeen.begin(), gSeen.end(),
                         [&](const health_problem &seen) { return is_same(seen, problem); });
        problem.since_s = before != gSeen.end() ? before->since_s : now_s;
    }
    gSeen = std::move(found);
}

static void look_cb(uloop_timeout *timer)
{
    look();
    uloop_timeout_set(timer, LOOK_MS);
}

void wifi_health_start()
{
    gTimer.cb = look_cb;
    uloop_timeout_set(&gTimer, LOOK_MS);
}

// ---- answering

static void add_problem(blob_buf *problems, const health_problem &problem)
{
    void *table = blobmsg_open_table(problems, nullptr);
    blobmsg_add_string(problems, "id", problem.kind->id);
    blobmsg_add_string(problems, "object", problem.object.c_str());
    blobmsg_add_u64(problems, "since", static_cast<uint64_t>(zu_date_of(problem.since_s)));
    blobmsg_add_string(problems, "advice", problem.kind->advice);
    blobmsg_close_table(problems, table);
}

int wifi_health_check(ubus_context *, blob_attr *, blob_buf *problems)
{
    if (!problems) {
        log_error("%s is NULL", "problems");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const int64_t now_s = zu_monotonic_s();
    for (const health_problem &problem : gSeen) {
        if (now_s - problem.since_s >= problem.kind->grace_s)
            add_problem(problems, problem);
    }
    return UBUS_STATUS_OK;
}
