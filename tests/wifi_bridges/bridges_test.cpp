// Which bridge each SSID's mesh interface is put into, on the kernel this runs on. It may know no
// VLANs: the interfaces are plain ones under the names that the VLANs of bat0 have.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <net/if.h>
#include <string>

#include "platform/zu/log.h"
#include "state/owned.h"
#include "support/own_log.h"
#include "support/run.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wired/upstream.h"

namespace {

void ip(const std::string &arguments)
{
    EXPECT_EQ(run("ip " + arguments).status, 0) << arguments;
}

/// The bridge an interface is a port of, "" for none.
std::string bridge_of(const std::string &name)
{
    std::error_code error;
    return std::filesystem::read_symlink("/sys/class/net/" + name + "/master", error).filename();
}

bool is_up(const std::string &name)
{
    std::ifstream file("/sys/class/net/" + name + "/flags");
    unsigned flags = 0;
    file >> std::hex >> flags;
    return flags & IFF_UP;
}

/// Something that can be a port.
void link_add(const char *name)
{
    ip(std::string("link add ") + name + " type veth");
}

class Bridges : public ::testing::Test {
protected:
    void SetUp() override
    {
        gTarn_net_state = {};
        gWifi_live_settings = {};
        for (const char *bridge : BRIDGES)
            ip(std::string("link add ") + bridge + " type bridge");
        for (const char *port : PORTS)
            link_add(port);
        ssid().enable = true;
        ssid().vlan_tag = -1;
    }
    void TearDown() override
    {
        run("for i in br-ssid2 br-ssid2_vlan br-wired0 bat0 bat0.12 bat0.22 bat0.32; do "
            "ip link del $i; done");
    }
    static wifi_ssid_settings &ssid() { return gWifi_live_settings.ssids[1]; }
    static void wire(const char *bridge)
    {
        gTarn_net_state.inet_test.upstream_state =
            *bridge ? TARN_NET_UPSTREAM_WAN_STATE : TARN_NET_UPSTREAM_MESH_STATE;
        snprintf(gTarn_net_state.upstream.wired_uplink_bridge,
                 sizeof gTarn_net_state.upstream.wired_uplink_bridge, "%s", bridge);
    }
    /// Where the three mesh interfaces of the SSID are: plain, VLAN, LAN-bridged.
    static std::string places()
    {
        wifid_apply_bridges();
        return bridge_of("bat0.12") + "|" + bridge_of("bat0.22") + "|" + bridge_of("bat0.32");
    }

    static constexpr const char *BRIDGES[] = {"br-ssid2", "br-ssid2_vlan", "br-wired0"};
    static constexpr const char *PORTS[] = {"bat0", "bat0.12", "bat0.22", "bat0.32"};
};

TEST_F(Bridges, TheMeshInterfaceOfAnSsidFollowsItsSettingsAndTheUpstream)
{
    wire("br-wired0");
    EXPECT_EQ(places(), "br-ssid2||");
    EXPECT_TRUE(is_up("bat0.12"));
    ssid().vlan_tag = 40;
    EXPECT_EQ(places(), "|br-ssid2_vlan|");
    ssid().bridge_to_lan = true;
    EXPECT_EQ(places(), "||br-wired0");
    wire("");
    EXPECT_EQ(places(), "||br-ssid2_vlan") << "its clients stay apart on a node without a wire";
    ssid().vlan_tag = -1;
    EXPECT_EQ(places(), "||br-ssid2");
    wire("br-wired0");
    gTarn_net_state.inet_test.upstream_state = TARN_NET_UPSTREAM_MESH_STATE;
    EXPECT_EQ(places(), "||br-ssid2") << "a wire that does not lead out counts as none";
    ssid().enable = false;
    ssid().bridge_to_lan = false;
    EXPECT_EQ(places(), "||br-ssid2") << "nothing is done for an SSID that is off";
}

TEST_F(Bridges, RepeatingItChangesNothing)
{
    ASSERT_EQ(places(), "br-ssid2||");
    ip("link set bat0.12 down");
    ASSERT_EQ(places(), "br-ssid2||");
    EXPECT_TRUE(is_up("bat0.12")) << "a port that is in place and down does not count";
    // Each change of a link is announced in the log.
    const own_log log(ZU_LOG_NOTICE);
    EXPECT_EQ(places(), "br-ssid2||");
    EXPECT_EQ(log.text(), "");
}

TEST_F(Bridges, WhatIsMissingIsPassedOver)
{
    ip("link del br-ssid2");
    EXPECT_EQ(places(), "||");
    ip("link add br-ssid2 type bridge");
    ip("link del bat0");
    EXPECT_EQ(places(), "||") << "without a mesh there is nothing to cross it on";
    link_add("bat0");
    ip("link del bat0.22");
    EXPECT_EQ(places(), "br-ssid2||");
}

} // namespace
