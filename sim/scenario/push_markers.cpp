// Numbered pushes; see push_markers.h.
#include "push_markers.h"

#include <cstdlib>
#include <fstream>
#include <set>
#include <vector>

#include "expect.h"
#include "timeline.h"

constexpr char NUMBER[] = "\"node_id\":";
constexpr char DELAYED[] = "\"delayed_settings\":true";

/// What is known of the pushes so far.
struct history {
    std::vector<int> sent;
    std::set<int> taken, refused;
    int delayed = 0;        ///< the last one sent so, 0 when none
    bool restarted = false; ///< since that one
};

/// The number after the text's first `before`, 0 when it has none.
static int number_after(const std::string &text, const std::string &before)
{
    const size_t at = text.find(before);
    return at == std::string::npos ? 0 : atoi(text.c_str() + at + before.size());
}

static void note_sent(const std::string &text, history *known)
{
    const int number = number_after(text, NUMBER);
    if (number == 0)
        return;
    known->sent.push_back(number);
    if (text.find(DELAYED) != std::string::npos) {
        known->delayed = number;
        known->restarted = false;
    }
}

/// "push to qnet.wifi: Success (node 7)"; of a push without an answer nobody knows.
static void note_answered(const std::string &text, history *known)
{
    const int number = number_after(text, "(node ");
    if (number == 0)
        return;
    if (text.find("Success") != std::string::npos)
        known->taken.insert(number);
    else if (text.find("Invalid argument") != std::string::npos ||
             text.find("Unknown error") != std::string::npos)
        known->refused.insert(number);
}

static history read_history()
{
    history known;
    for (const entry &one : timeline_since(0)) {
        if (one.what == kind::story)
            note_sent(one.text, &known);
        else if (one.what == kind::peer)
            note_answered(one.text, &known);
        else if (one.what == kind::ended && one.text.starts_with("tarn_net"))
            known.restarted = true;
    }
    return known;
}

/// Those that may be in force.
static std::set<int> candidates(const history &known)
{
    std::set<int> may;
    for (const int number : known.sent) {
        if (known.taken.contains(number))
            may.clear();
        if (!known.refused.contains(number))
            may.insert(number);
    }
    if (known.taken.empty())
        may.insert(0);
    return may;
}

/// "10.X.Y.1": the network that lies so many steps below the node's own.
static std::string address(int number, int below)
{
    const int value = (((number * -20) & 0xFFFC) - 4 - 4 * below) & 0xFFFF;
    return "10." + std::to_string(value >> 8) + "." + std::to_string(value & 0xFF) + ".1";
}

static std::map<std::string, std::string> options_of(int number)
{
    const std::string n = std::to_string(number);
    const std::string pool = "172.16." + n + ".1/24";
    std::string sources;
    for (const int below : {0, 1, 2})
        sources += "'" + address(number, below) + "/22' ";
    sources += "'" + pool + "' '" + address(number, 4) + "/22'";
    return {{"u80211d.global.scan_period", "'" + std::to_string(number * 60) + "'"},
            {"prequestd.prequestd.interval", "'" + n + "'"},
            {"fw_core.local.node_id", "'" + n + "'"},
            {"wireless.radio0.txpower", "'" + n + "'"},
            {"wireless.ap0_1.ssid", "'Net " + n + "'"},
            {"ap_mgr.ssid1.ssid", "'Net " + n + "'"},
            {"network.mesh_gw.ipaddr", "'" + address(number, 0) + "'"},
            {"network.ssid1.ipaddr", "'" + address(number, 1) + "'"},
            {"network.ssid3.ipaddr", "'172.16." + n + ".1'"},
            {"network.ssid2.bridge_to_lan", push_is_bridged(number) ? "'1'" : "'0'"},
            {"network.ssid3_vlan.vid", push_has_vlan(number) ? "'30'" : "'-1'"},
            {"firewall.ssid1_cp.src_dip", "'" + address(number, 1) + "'"},
            {"firewall.wired0.masq_src", sources},
            {"dhcp.ssid3.limit", "'" + n + "'"}};
}

/// The radios' part, which delayed settings put into force later.
static std::map<std::string, std::string> radio_options_of(int number)
{
    return {{"wireless.radio0.channel", "'" + std::to_string(push_channel(number)) + "'"},
            {"wireless.radio1.channel", number % 3 == 0 ? "'52'" : "'36'"},
            {"wireless.ap0_2.config_enable", number % 2 == 0 ? "'1'" : "'0'"}};
}

static void compare(const std::map<std::string, std::string> &wanted,
                    const std::map<std::string, std::string> &uci, std::string *why)
{
    for (const auto &[option, value] : wanted) {
        const auto found = uci.find(option);
        const std::string is = found == uci.end() ? "missing" : found->second;
        if (is != value)
            *why += "\n    half a push: " + option + " is " + is + ", not " + value;
    }
}

static std::string listed(const std::set<int> &numbers)
{
    std::string text;
    for (const int number : numbers)
        text += " " + std::to_string(number);
    return text;
}

void push_markers_check(const std::map<std::string, std::string> &uci, const std::string &wifi,
                        std::string *why)
{
    const history known = read_history();
    const auto found = uci.find("ap_mgr.ssid1.ssid");
    const int number = found == uci.end() ? 0 : number_after(found->second, "Net ");
    const std::set<int> may = candidates(known);
    if (known.sent.empty())
        return;
    if (!may.contains(number))
        *why += "\n    push " + std::to_string(number) + " is in force, but it must be one of" +
                listed(may);
    if (number == 0)
        return;
    compare(options_of(number), uci, why);
    // Delayed settings end with the daemon, and when the cloud got no answer in time.
    const bool confirmed = known.taken.contains(number) && !known.restarted;
    if (number != known.delayed || confirmed)
        compare(radio_options_of(number), uci, why);
    if (json_member(wifi, "node_id") != std::to_string(number))
        *why += "\n    the live record is that of push " + json_member(wifi, "node_id") + ", not " +
                std::to_string(number);
    std::string first;
    std::getline(std::ifstream("/tmp/cp-hosts1"), first);
    if (first != address(number, 1) + " logout")
        *why += "\n    /tmp/cp-hosts1 begins with '" + first + "'";
}
