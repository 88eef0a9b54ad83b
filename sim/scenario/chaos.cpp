// sim_chaos SEED: writes a scenario of random faults, the same one for the same seed. Rounds of
// faults that overlap are each followed by ten quiet minutes, after which the node must be what the
// cables and the pushes say. A scenario that fails is kept, cut down to what makes it fail.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "push_markers.h"

constexpr int ROUNDS_LEAST = 1, ROUNDS_MOST = 2;
constexpr int EVENTS_LEAST = 6, EVENTS_MOST = 14;
constexpr int PAUSE_MOST_DS = 150; ///< between two events, in tenths of a second
constexpr int QUIET_S = 600, REST_S = 60;

static std::mt19937 generator;

static int random(int least, int most)
{
    return least + static_cast<int>(generator() % static_cast<unsigned>(most - least + 1));
}

template <typename T>
static const T &any(std::span<const T> of)
{
    return of[static_cast<size_t>(random(0, static_cast<int>(of.size()) - 1))];
}

using text = const char *;

static void say(const std::string &line)
{
    puts(line.c_str());
}

constexpr text PACKAGES[] = {"tarn_net", "wireless", "network",   "dhcp",
                             "firewall", "udsplash", "udshape",   "ap_mgr",
                             "u80211d",  "fw_core",  "prequestd", "igmpproxy"};
constexpr text COMMANDS[] = {"batctl", "reload_config", "/etc/init.d/lonely", "/etc/init.d/orphand",
                             "/etc/init.d/dnsmasq"};
constexpr text PEERS[] = {"netifd", "hostapd", "u80211d", "lldpd", "cloud", "procd"};
constexpr text PEER_FAULTS[] = {"hang",
                                "die",
                                "late",
                                "twice",
                                "wrong",
                                "empty",
                                "fail",
                                "hang status",
                                "die status",
                                "late status 9000",
                                "hang interface.update",
                                "twice interface.update",
                                "hang lldp_negotiation_complete"};
constexpr text CABLES[] = {"wired0", "wired1", "mesh"};

/// A fault that lasts, and what ends it. Those that end over the bus do so once that is back.
struct fault {
    std::string begin, end;
    bool over_bus = false;
    bool operator==(const fault &) const = default;
};
static std::vector<fault> active;

static void begin(const fault &one)
{
    const auto same_end = [&](const fault &other) { return other.end == one.end; };
    if (std::any_of(active.begin(), active.end(), same_end))
        return;
    say(one.begin);
    active.push_back(one);
}

static void end_one()
{
    if (active.empty())
        return;
    const auto which = active.begin() + random(0, static_cast<int>(active.size()) - 1);
    say((which->over_bus ? "try " : "") + which->end);
    if (!which->over_bus)
        active.erase(which);
}

static void break_package()
{
    const std::string what =
        std::string(random(0, 2) == 0 ? "file " : "lock ") + any<text>(PACKAGES);
    begin({"break " + what, "mend " + what});
}

static void fill_disk()
{
    begin({"break disk", "mend disk"});
}

static void break_shell()
{
    say("break shell");
    say("advance " + std::to_string(random(1, 8)) + "s");
    say("mend shell");
}

static void break_command()
{
    const std::string name = any<text>(COMMANDS);
    if (random(0, 1) == 0)
        begin({"exit " + name + " 1", "exit " + name + " none"});
    else
        begin({"delay " + name + " " + std::to_string(random(2, 100)), "delay " + name + " none"});
}

static void break_peer()
{
    const std::string peer = any<text>(PEERS);
    begin({"try peer " + peer + " " + any<text>(PEER_FAULTS), "peer " + peer + " none", true});
}

static void break_provider()
{
    if (random(0, 1) == 0) {
        static constexpr text HOW[] = {"off", "refuse", "slow 3000"};
        begin({std::string("internet ") + any<text>(HOW), "internet on"});
        return;
    }
    const std::string port = std::to_string(random(0, 1));
    begin({"try lease wired" + port + " none",
           "lease wired" + port + " \"10.1" + port + ".0.2/24 10.1" + port + ".0.1\"", true});
}

/// Power that lasts for little, until it has been negotiated.
static void negotiate()
{
    begin({"try run echo 0 >/sys/class/gpio/dc_detect/value; "
           "ubus call qnet.lldp negotiate '{\"complete\":false}'",
           "run ubus call qnet.lldp negotiate '{\"complete\":true}'", true});
}

static void plug()
{
    say(std::string(any<text>(CABLES)) + (random(0, 1) == 0 ? " up" : " down"));
}

static void restart()
{
    switch (random(0, 3)) {
    case 0:
        return say("try bus restart");
    case 1:
        return say(std::string("try ") + any<text>(PEERS) + " restart");
    case 2:
        return say("try tarn_net restart");
    default:
        return say("try tarn_net kill");
    }
}

/// What the daemon is asked to do over the bus, by the operator, the cloud and scripts of netifd.
static void ask()
{
    static constexpr text CALLS[] = {
        "qnet.wired wired_event '{\"interface\":\"wired0\",\"action\":\"ifup\"}'",
        "qnet.wired wired_event '{\"interface\":\"wired1\",\"action\":\"ifup\"}'",
        "qnet.wired reload_config",
        "qnet.wifi reload_config",
        "qnet.wifi end_delayed_wireless",
        "qnet.wired gen_checkin",
        "qnet.wifi gen_checkin"};
    say(std::string("try run ubus call ") + any<text>(CALLS));
}

static int pushes;

static void push()
{
    pushes++;
    switch (random(0, 5)) {
    case 0:
        return say("try push '" + push_refusable(pushes) + "'");
    case 1:
        return say("try push '" + push_marked(pushes, true) + "'");
    case 2: // killed in the middle
        return say("try run \"$TARN_SOURCE/sim/node.d/surroundings\" push '" +
                   push_marked(pushes, false) + "' >/dev/null 2>&1 & sleep 0." +
                   std::to_string(random(10, 60)) + "; kill -KILL $(cat /var/run/tarn_net.pid)");
    default:
        return say("try push '" + push_marked(pushes, false) + "'");
    }
}

static void push_wired()
{
    const std::string tolerance = std::to_string(random(2, 4)),
                      proxy = std::to_string(random(0, 1));
    const std::string interval = std::to_string(random(2, 3) * 10);
    say("try run ubus call qnet.wired parse_config '{\"params\":{\"inet_test\":{"
        "\"failure_tolerance\":" +
        tolerance + ",\"test_interval\":" + interval + "},\"igmp_proxy\":" + proxy + "}}'");
}

/// More often what is listed more often.
constexpr void (*EVENTS[])() = {
    break_package, break_package, break_package, fill_disk,  break_shell,    break_command,
    break_command, break_peer,    break_peer,    break_peer, break_provider, break_provider,
    negotiate,     plug,          plug,          plug,       restart,        restart,
    ask,           push,          push,          push_wired, end_one,        end_one};

/// First what holds up everybody, then, when all programs are back, what is ended over the bus.
static void end_all()
{
    for (const fault &one : active) {
        if (!one.over_bus)
            say(one.end);
    }
    say("advance 4s");
    const auto is_peer = [](const fault &one) { return one.end.starts_with("peer "); };
    std::stable_partition(active.begin(), active.end(), is_peer);
    for (const fault &one : active) {
        if (one.over_bus)
            say(one.end);
    }
    active.clear();
}

/// Plugs cables at random; the state that the node should come to.
static std::string last_plugging()
{
    const int up = random(0, 9); // each state now and then, WAN in half of the cases
    const bool wire0 = up < 5 && up != 1, wire1 = up < 3, mesh = up < 8;
    say(std::string("wired0 ") + (wire0 ? "up" : "down"));
    say(std::string("wired1 ") + (wire1 ? "up" : "down"));
    say(std::string("mesh ") + (mesh ? "up" : "down"));
    return wire0 || wire1 ? "WAN" : mesh ? "MESH" : "LONELY";
}

static void round(int number)
{
    say("\n# Round " + std::to_string(number) + ".");
    for (int events = random(EVENTS_LEAST, EVENTS_MOST); events > 0; events--) {
        any<void (*)()>(EVENTS)();
        const int pause = random(1, PAUSE_MOST_DS);
        say("advance " + std::to_string(pause / 10) + "." + std::to_string(pause % 10) + "s");
    }
    say("# All faults end, then it is quiet.");
    end_all();
    const std::string state = last_plugging();
    // What hostapd and netifd missed of the configuration while they were away is not the daemon's.
    say("run ubus call service event '{\"type\":\"config.change\",\"data\":{}}'");
    say("advance " + std::to_string(QUIET_S - REST_S) + "s");
    say("mark");
    say("advance " + std::to_string(REST_S) + "s");
    say("expect settled " + state);
}

int main(int argc, char **argv)
{
    if (argc != 2 || atoi(argv[1]) < 1) {
        fprintf(stderr, "usage: sim_chaos SEED\n");
        return 2;
    }
    generator.seed(static_cast<unsigned>(atoi(argv[1])));
    say("# Made by sim_chaos " + std::string(argv[1]) + ".");
    say("# node-mesh: cable");
    say("# lab-limit: 20000");
    say("title Chaos with the seed " + std::string(argv[1]) + "\n");
    // A test costs the host as much as minutes of rest: seldom ones, and without cryptography.
    say("uci set tarn_net.inet_test_config.test_interval=20");
    say("uci del_list tarn_net.inet_test_config.inet_test_targets=https://check.internet.test");
    say("lonely 20");
    say("kernel link add bat0 type dummy");
    say("kernel link set bat0 up");
    say("start");
    say("within 2m state WAN");
    say("push '" + push_marked(++pushes, false) + "'");
    say("advance 60s");
    say("mark");
    say("advance 10s");
    say("remember");
    say("expect settled WAN");
    const int rounds = random(ROUNDS_LEAST, ROUNDS_MOST);
    for (int number = 1; number <= rounds; number++)
        round(number);
    return 0;
}
