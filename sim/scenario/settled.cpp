// What a node at rest must look like; see settled.h.
#include "settled.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <map>
#include <vector>

#include "expect.h"
#include "push_markers.h"
#include "stage.h"
#include "timeline.h"

namespace fs = std::filesystem;

constexpr int SSIDS = 4, RADIOS = 2, PORTS = 2;
constexpr int LOOKS = 8; ///< for what only a running cycle or collection holds
constexpr long LOOK_AGAIN_MS = 700;

using list = std::vector<std::string>;

struct node {
    std::string state; ///< that it should be in
    std::map<std::string, std::string> uci;
    std::string wired, wifi; ///< the state documents
    std::string uplink, bridge;
    std::string *why;

    bool wan() const { return state == "WAN"; }
    void complain(const std::string &what) const { *why += "\n    " + what; }
    void must(bool holds, const std::string &what) const
    {
        if (!holds)
            complain(what);
    }
    list values(const std::string &option) const;
    std::string value(const std::string &option) const;
    void uci_must(const std::string &option, const std::string &wanted) const
    {
        if (value(option) != wanted)
            complain(option + " is '" + value(option) + "', not '" + wanted + "'");
    }
};

/// The values of an option, "'a' 'b'" as `uci show` writes a list.
list node::values(const std::string &option) const
{
    list found;
    const auto at = uci.find(option);
    if (at == uci.end())
        return found;
    const std::string &text = at->second;
    for (size_t open = text.find('\''); open != std::string::npos;) {
        const size_t close = text.find('\'', open + 1);
        found.push_back(text.substr(open + 1, close - open - 1));
        open = close == std::string::npos ? close : text.find('\'', close + 1);
    }
    return found;
}

std::string node::value(const std::string &option) const
{
    std::string joined;
    for (const std::string &one : values(option))
        joined += (joined.empty() ? "" : " ") + one;
    return joined;
}

static bool holds(const list &values, const std::string &one)
{
    return std::find(values.begin(), values.end(), one) != values.end();
}

static std::string numbered(const char *before, int number, const std::string &after)
{
    return before + std::to_string(number) + after;
}

/// Number K of "br-wiredK", -1 when it is another name.
static int port_of(const std::string &bridge)
{
    return bridge.starts_with("br-wired") ? atoi(bridge.c_str() + 8) : -1;
}

static bool expected(const node &now, const std::string &text)
{
    std::string why;
    const bool is = expect_holds(text, &why);
    now.must(is, text + ": " + why);
    return is;
}

static bool check_upstream(const node &now)
{
    if (!expected(now, "state " + now.state))
        return false;
    expected(now, now.wan() ? "rules from all lookup 10" : "rules from all iif lo lookup 20");
    if (now.wan()) {
        now.must(port_of(now.uplink) >= 0 && now.uplink == now.bridge,
                 "the uplink is '" + now.uplink + "', the wired bridge '" + now.bridge + "'");
        expected(now, "run grep -q 1 /sys/class/net/" + now.uplink + "/carrier");
    }
    if (now.state == "MESH")
        expected(now, "uplink br-mesh_rp");
    if (now.state != "LONELY")
        expected(now, "failures 0");
    expected(now,
             std::string("run batctl gw_mode | grep -q ^") + (now.wan() ? "server" : "client"));
    return true;
}

static void check_test(const node &now)
{
    const long interval = atol(json_member(now.wired, "test_interval").c_str());
    const long age = time(nullptr) - atol(json_member(now.wired, "time").c_str());
    now.must(interval > 0 && age <= 3 * interval + 2, "the last verdict is " + std::to_string(age) +
                                                          " s old, the interval is " +
                                                          std::to_string(interval) + " s");
    for (const char *name : {"test_interval", "failure_tolerance"})
        now.uci_must(std::string("tarn_net.inet_test_config.") + name,
                     json_member(now.wired, name));
}

static bool bridged(const node &now, int ssid)
{
    return now.value(numbered("network.ssid", ssid, ".bridge_to_lan")) == "1";
}

static bool has_vlan(const node &now, int ssid)
{
    const int id = atoi(now.value(numbered("network.ssid", ssid, "_vlan.vid")).c_str());
    return id >= 1 && id <= 4095;
}

/// A lonely node may go on forwarding to the uplink that it had, or not.
static void check_firewall(const node &now)
{
    for (int port = 0; port < PORTS && now.state != "LONELY"; port++) {
        const bool used = port_of(now.uplink) == port;
        const std::string rule = "wan_wired" + std::to_string(port) + ".enabled";
        now.uci_must("firewall.mesh" + rule, used ? "1" : "0");
        for (int ssid = 1; ssid <= SSIDS; ssid++) {
            const bool forwarded = used && !bridged(now, ssid) && !has_vlan(now, ssid);
            now.uci_must(numbered("firewall.ssid", ssid, rule), forwarded ? "1" : "0");
        }
    }
    for (int ssid = 1; ssid <= SSIDS; ssid++) {
        const bool on = now.wan() && now.value(numbered("udsplash.ssid", ssid, ".enable")) == "1";
        const bool lan = bridged(now, ssid);
        now.uci_must(numbered("firewall.ssid", ssid, "_cp.enabled"), on && !lan ? "1" : "0");
        now.uci_must(numbered("firewall.ssid", ssid, "_lan_cp.enabled"), on && lan ? "1" : "0");
        if (now.wan())
            now.uci_must(numbered("firewall.ssid", ssid, "_lan_cp.src"), now.uplink.substr(3));
    }
}

static void check_dhcp(const node &now)
{
    now.uci_must("dhcp.mesh_gw.ignore", now.wan() ? "0" : "1");
    for (int ssid = 1; ssid <= SSIDS; ssid++)
        now.uci_must(numbered("dhcp.ssid", ssid, ".ignore"),
                     now.wan() && !bridged(now, ssid) ? "0" : "1");
    // A port's event puts its bridge here whatever the state.
    const list served = now.values("dhcp.lan_dns.interface");
    now.must(holds(served, now.wan() ? now.bridge : "br-mesh_rp"),
             "dhcp.lan_dns.interface lacks the uplink");
    for (const std::string &one : served)
        now.must((one != "br-mesh_rp" || !now.wan()) && (port_of(one) < 0 || one == now.bridge),
                 "dhcp.lan_dns.interface has " + one);
}

static void check_portal(const node &now)
{
    for (int ssid = 1; ssid <= SSIDS; ssid++) {
        const std::string name = std::to_string(ssid);
        const list access = now.values("udsplash.ssid" + name + ".accessif");
        for (const std::string &one :
             {"bat0.1" + name, "bat0.2" + name, "bat0.3" + name, "ap0_" + name, "ap1_" + name})
            now.must(holds(access, one) == now.wan(),
                     "udsplash.ssid" + name + ".accessif and " + one);
        const char *kind = bridged(now, ssid)    ? "bat0.3"
                           : has_vlan(now, ssid) ? "bat0.2"
                                                 : "bat0.1";
        const std::string port = "eth" + std::to_string(std::max(0, port_of(now.uplink)));
        now.uci_must("udshape.ssid" + name + ".gatewayif", now.wan() ? port : kind + name);
    }
}

/// Must the radio leave its channel for a radar?
static bool on_radar_channel(const node &now, const std::string &radio)
{
    const int channel = atoi(now.value("wireless." + radio + ".channel").c_str());
    return (channel >= 52 && channel <= 64) || (channel >= 100 && channel <= 144) ||
           now.value("wireless." + radio + ".htmode").find("160") != std::string::npos;
}

static void check_radios(const node &now)
{
    std::string published;
    stage_run("ubus list 'hostapd.ap*'", &published);
    for (int radio = 0; radio < RADIOS; radio++) {
        const std::string number = std::to_string(radio), name = "radio" + number;
        const std::string mesh = "wireless.mesh" + number;
        now.uci_must(mesh + ".enable",
                     on_radar_channel(now, name) ? "0" : now.value(mesh + ".config_enable"));
        if (now.state != "LONELY")
            now.must(now.value("wireless.orph_conn" + number + ".enable") != "1",
                     "wireless.orph_conn" + number + " is on");
        for (int ssid = 1; ssid <= SSIDS; ssid++) {
            const std::string ap = "ap" + number + "_" + std::to_string(ssid);
            const std::string intended = now.value("wireless." + ap + ".config_enable");
            now.uci_must("wireless." + ap + ".enable", intended);
            const bool there = published.find("hostapd." + ap + "\n") != std::string::npos;
            now.must(there == (intended == "1"),
                     ap + (there ? " runs though it is off" : " does not run"));
        }
    }
}

static void check_leds(const node &now)
{
    if (now.state == "LONELY")
        expected(now, "run grep -q 1 /tmp/led_flags/network_fail");
    else
        expected(now, now.wan() ? "leds gateway" : "leds repeater");
}

static bool is_alive(const char *pidfile)
{
    std::string pid;
    std::ifstream(pidfile) >> pid;
    return !pid.empty() && fs::exists("/proc/" + pid);
}

static void check_leftovers(const node &now)
{
    expected(now, "no file /tmp/wifi-delayed-*");
    now.must(now.state == "LONELY" || !is_alive("/var/run/lonely.pid"), "the lonely service runs");
    now.must(!is_alive("/var/run/orphand.pid"), "the orphan daemon runs");
    for (const auto &file : fs::directory_iterator("/etc/config")) {
        const std::string name = file.path().filename().string();
        now.must(std::all_of(name.begin(), name.end(),
                             [](char c) { return isalnum(c) != 0 || c == '_'; }),
                 "/etc/config/" + name + " is left");
    }
    for (const auto &file : fs::directory_iterator("/tmp/.uci"))
        now.must(file.file_size() == 0, file.path().string() + " is left");
}

/// Processes, children of the daemon, and its descriptors: the least of several looks, as a running
/// cycle or collection has more.
static void check_processes(const node &now)
{
    std::map<std::string, long> least;
    for (int look = 0; look < LOOKS; look++) {
        for (const auto &[name, amount] : stage_daemon_amounts()) {
            const auto found = least.try_emplace(name, amount).first;
            found->second = std::min(found->second, amount);
        }
        stage_advance_ms(LOOK_AGAIN_MS);
    }
    static std::map<std::string, long> first; // a node at rest was looked at before
    if (first.empty())
        first = least;
    now.must(least["daemons"] == 1, "daemons: " + std::to_string(least["daemons"]));
    for (const auto &[name, amount] : least)
        now.must(amount <= first[name], name + ": " + std::to_string(first[name]) + " at first, " +
                                            std::to_string(amount) + " now");
}

/// Options that the upstream or a push decides; the other checks look at them.
constexpr const char *DECIDED[] = {
    "ap_mgr.ssid1.ssid",       "ap_mgr.ssid2.enable",        "dhcp.lan_dns.interface",
    "dhcp.mesh_gw.ignore",     "dhcp.ssid3.dhcpv6",          "dhcp.ssid3.limit",
    "dhcp.ssid3.ra",           "dhcp.ssid?.ignore",          "firewall.*.enabled",
    "firewall.*.src_dip",      "firewall.*_lan_cp.src",      "firewall.wired?.masq_src",
    "fw_core.local.node_id",   "igmpproxy.igmpproxy.enable", "network.*.ipaddr",
    "network.ssid2.*",         "network.ssid3_vlan.vid",     "prequestd.prequestd.*",
    "tarn_net.inet_test_*",    "tarn_net.local.*",           "tarn_net.settings*",
    "tarn_net.wired*",         "u80211d.global.scan_period", "udshape.ssid?.*if",
    "udsplash.ssid?.*if",      "wireless.ap?_1.ssid",        "wireless.ap?_2.*",
    "wireless.ap?_?.enable",   "wireless.mesh?.enable",      "wireless.orph_conn?.enable",
    "wireless.radio0.txpower", "wireless.radio?.channel",
};

static bool is_decided(const std::string &option)
{
    return std::any_of(std::begin(DECIDED), std::end(DECIDED), [&](const char *pattern) {
        return fnmatch(pattern, option.c_str(), 0) == 0;
    });
}

static void check_untouched(const node &now)
{
    const auto &before = expect_remembered();
    if (before.empty())
        return;
    auto all = before;
    all.insert(now.uci.begin(), now.uci.end());
    for (const auto &[option, value] : all) {
        const auto was = before.find(option), is = now.uci.find(option);
        const std::string old = was == before.end() ? "nothing" : was->second;
        const std::string found = is == now.uci.end() ? "nothing" : is->second;
        if (old != found && !is_decided(option))
            now.complain(option + " was " + old + " and is " + found);
    }
}

/// Nothing goes on any more since the mark; what the lonely node does every minute is no unrest.
static void check_rest(const node &now)
{
    for (const entry &one : timeline_since(expect_marked())) {
        const bool acts = one.what == kind::rule || one.what == kind::commit ||
                          one.what == kind::command || one.what == kind::led;
        const bool errs = one.what == kind::log && one.text.starts_with("ERROR");
        if ((acts || errs) && one.text != "/etc/init.d/lonely start")
            now.complain("no rest: " + std::string(kind_name(one.what)) + " " + one.text);
    }
}

bool settled(const std::string &state, std::string *why)
{
    why->clear();
    node now{.state = state,
             .uci = stage_configuration(),
             .wired = stage_ask("qnet.wired", "dump_state"),
             .wifi = stage_ask("qnet.wifi", "dump_state"),
             .uplink = {},
             .bridge = {},
             .why = why};
    now.uplink = json_member(now.wired, "uplink_iface");
    now.bridge = json_member(now.wired, "wired_uplink_bridge");
    check_rest(now);
    check_test(now);
    if (check_upstream(now)) {
        for (const auto check : {check_firewall, check_dhcp, check_portal, check_leds})
            check(now);
    }
    for (const auto check : {check_radios, check_untouched, check_leftovers, check_processes})
        check(now);
    push_markers_check(now.uci, now.wifi, why);
    return why->empty();
}
