// What status answers of netifd make of an interface's facts, the malformed and hostile ones too.
#include "platform/zu/log.h"
#include "state/owned.h"
#include "support/bus_fixture.h"
#include "support/own_log.h"
#include "wired/bridges.h"
#include "wired/inet_probe.h"
#include "wired/netifd/iface.h"
#include "wired/netifd/iface_internal.h"

namespace {

struct NetifdStatus : testing::Test {
    char path[32] = "network.interface.wired0";
    iface_entry entry = {};

    void SetUp() override
    {
        inet_test_reset();
        entry.obj_path = path;
    }
    void take(const std::string &json) { iface_list_parse_status(&entry, json_message(json).head); }
    std::string facts() const
    {
        return std::string(entry.up ? "up " : "down ") + entry.device + " gw=" + entry.gateway +
               " ip=" + entry.address + (entry.has_default_route ? " default" : "");
    }
};

constexpr char GOOD[] =
    R"({"up":true,"device":"br-wired0","route":[)"
    R"({"target":"0.0.0.0","mask":0,"nexthop":"10.0.0.1","source":"10.0.0.7/24"}]})";

} // namespace

TEST_F(NetifdStatus, RoutesGiveGatewayAndAddress)
{
    const struct {
        const char *routes, *facts;
    } cases[] = {
        // The walk ends at the default route, wherever it stands.
        {R"([{"target":"10.9.0.0","mask":16,"nexthop":"1.1.1.1","source":"2.2.2.2/8"},
             {"target":"0.0.0.0","mask":0,"nexthop":"10.0.0.1","source":"10.0.0.7/24"},
             {"target":"10.8.0.0","mask":16,"nexthop":"3.3.3.3","source":"4.4.4.4/8"}])",
         "up br-x gw=10.0.0.1 ip=10.0.0.7 default"},
        // Without a default route the last one examined stays.
        {R"([{"target":"10.9.0.0","mask":16,"nexthop":"1.1.1.1","source":"2.2.2.2/8"},
             {"target":"0.0.0.0","mask":1,"nexthop":"3.3.3.3","source":"4.4.4.4"}])",
         "up br-x gw=3.3.3.3 ip=4.4.4.4"},
        {R"([{"target":"0.0.0.0","mask":0}])", "up br-x gw= ip= default"},
        // Elements that are no route change nothing of the others.
        {R"(["x",7,{"nexthop":"9.9.9.9"},{"target":"0.0.0.0","mask":"0"},
             {"target":"0.0.0.0","mask":0,"nexthop":5,"source":"10.0.0.7"}])",
         "up br-x gw= ip=10.0.0.7 default"},
        {R"([{"target":"0.0.0.0","mask":0,"nexthop":"2001:0db8:0000:0000:1","source":"/24"}])",
         "up br-x gw=2001:0db8:0000: ip= default"},
        {"[]", "up br-x gw= ip="},
    };
    for (const auto &c : cases) {
        take(GOOD);
        take(std::string(R"({"up":true,"device":"br-x","route":)") + c.routes + "}");
        EXPECT_EQ(facts(), c.facts) << c.routes;
    }
}

TEST_F(NetifdStatus, WhatIsMissingOrMalformedStopsTheReading)
{
    const struct {
        const char *status, *facts;
    } cases[] = {
        {R"({"device":"br-x"})", "up br-wired0 gw=10.0.0.1 ip=10.0.0.7 default"},
        {R"({"up":"yes","device":"br-x"})", "up br-wired0 gw=10.0.0.1 ip=10.0.0.7 default"},
        {R"({"up":false})", "down br-wired0 gw=10.0.0.1 ip=10.0.0.7 default"},
        {R"({"up":false,"device":"br-x"})", "down br-x gw= ip="},
        {R"({"up":true,"device":"br-x","route":{"target":"0.0.0.0","mask":0}})", "up br-x gw= ip="},
        {R"({"up":true,"device":"a-device-name-far-too-long","route":[]})",
         "up a-device-name-f gw= ip="},
        // Never a name that libcurl, UCI or a path would take for something else.
        {R"({"up":true,"device":"host!evil","route":[]})",
         "up br-wired0 gw=10.0.0.1 ip=10.0.0.7 default"},
        {R"({"up":true,"device":"../x\n","route":[]})",
         "up br-wired0 gw=10.0.0.1 ip=10.0.0.7 default"},
        {R"({"up":true,"device":""})", "up br-wired0 gw=10.0.0.1 ip=10.0.0.7 default"},
        {"{}", "up br-wired0 gw=10.0.0.1 ip=10.0.0.7 default"},
    };
    for (const auto &c : cases) {
        take(GOOD);
        take(c.status);
        EXPECT_EQ(facts(), c.facts) << c.status;
    }
}

TEST_F(NetifdStatus, WiredBridgeThatLeadsOutBecomesTheUplink)
{
    const auto &uplink = gTarn_net_state.upstream.wired_uplink_bridge;
    take(GOOD);
    EXPECT_STREQ(uplink, "") << "an interface that is no wired bridge";

    char second_path[] = "network.interface.wired1";
    iface_entry second = {};
    second.obj_path = second_path;
    entry.on_change = second.on_change = [](iface_entry *) { (void)find_bridge_uplink(); };
    list_add_tail(&entry.link, &gTarn_net_state.bridges.list);
    list_add_tail(&second.link, &gTarn_net_state.bridges.list);
    entry.up = false;
    iface_list_parse_status(&second, json_message(R"({"up":true,"device":"br-wired1","route":[
        {"target":"0.0.0.0","mask":0}]})")
                                         .head);
    EXPECT_STREQ(uplink, "br-wired1") << "the first one is down";
    take(GOOD);
    EXPECT_STREQ(uplink, "br-wired0") << "the first one that is up wins";
    take(R"({"up":true,"device":"br-wired0","route":[]})");
    EXPECT_STREQ(uplink, "br-wired1");
    take(GOOD);
    take(R"({"up":false,"device":"br-wired0"})");
    EXPECT_STREQ(uplink, "br-wired1") << "down, netifd names no routes";
    take(GOOD);
    iface_list_clear_facts(&entry);
    EXPECT_STREQ(uplink, "br-wired1") << "nothing is known of the first one any more";
    iface_list_parse_status(&second, json_message(R"({"up":false,"device":"br-wired1"})").head);
    EXPECT_STREQ(uplink, "br-wired1") << "without a winner the choice stays";
    INIT_LIST_HEAD(&gTarn_net_state.bridges.list);
}

TEST_F(NetifdStatus, HostileTextStaysOnOneLogLine)
{
    const own_log own;
    take(R"({"up":true,"device":"x\nMon: ERROR: forged"})");
    take(R"({"up":true,"device":"br-x","route":[{"target":"0.0.0.0","mask":0,)"
         R"("nexthop":"1\n2\r3","source":"\u001b[2J"}]})");
    const std::string log = own.text();
    EXPECT_NE(log.find("forged"), std::string::npos);
    size_t lines = 0;
    for (size_t at = 0; (at = log.find('\n', at)) != std::string::npos; at++) {
        lines++;
        EXPECT_NE(log.substr(at + 1, 4), "Mon ") << log;
    }
    EXPECT_EQ(log.find('\x1b'), std::string::npos);
    EXPECT_EQ(lines, 3u) << log;
}
