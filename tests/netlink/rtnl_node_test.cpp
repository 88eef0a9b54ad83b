// Links and rules on the kernel this runs on, in a network namespace of its own, as iproute2 sees
// them.
#include <cerrno>

#include <gtest/gtest.h>
#include <net/if.h>
#include <unistd.h>

#include "netlink/log_capture.h"
#include "netlink/rtnl.h"
#include "netlink/rtnl_internal.h"
#include "support/open_descriptors.h"
#include "support/run.h"

using lines = std::vector<std::string>;

static outcome ip(const std::string &arguments)
{
    return run("ip " + arguments);
}

/// Whether `ip link` tells this of an interface.
static bool link_tells(const std::string &name, const std::string &what)
{
    return ip("-o -d link show dev " + name).output.find(what) != std::string::npos;
}

class rtnl_node : public testing::Test {
protected:
    void SetUp() override
    {
        if (ip("link show dev lo").status != 0 || ip("link add nlt0 type bridge").status != 0)
            GTEST_SKIP() << "no network namespace of its own to change, or no bridges";
        ip("link del nlt0");
        descriptors_ = open_descriptors();
    }
    void TearDown() override
    {
        if (descriptors_) {
            EXPECT_EQ(open_descriptors(), descriptors_);
        }
    }

    log_capture log;

private:
    long descriptors_ = 0;
};

TEST_F(rtnl_node, links_are_created_once_and_destroyed)
{
    for (const char *name : {"br", "br-15-character"}) {
        EXPECT_EQ(_ng_rtnl_iface_create(RTNL_KIND_BRIDGE, name, 0), 0);
        EXPECT_TRUE(link_tells(name, " bridge forward_delay "));
        const unsigned index = if_nametoindex(name);
        log.take();
        EXPECT_EQ(_ng_rtnl_iface_create(RTNL_KIND_BRIDGE, name, 0), 0);
        EXPECT_EQ(log.take(), (lines{"NOTICE creating bridge iface '" + std::string(name) + "'",
                                     "ERROR RTNETLINK answers: File exists (-17)"}));
        EXPECT_EQ(if_nametoindex(name), index);
        EXPECT_EQ(ng_rtnl_iface_destroy(name), 0);
        EXPECT_EQ(if_nametoindex(name), 0u);
        EXPECT_EQ(ng_rtnl_iface_destroy(name), -1);
    }
    errno = 0;
    EXPECT_EQ(_ng_rtnl_iface_create(RTNL_KIND_INVALID, "any", 0), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
}

TEST_F(rtnl_node, ports_come_to_bridges_and_go)
{
    for (const char *added :
         {"br-a type bridge", "br-b type bridge", "port0 type veth peer name port1"})
        ASSERT_EQ(ip(std::string("link add ") + added).status, 0) << added;
    for (const char *bridge : {"br-a", "br-a", "br-b"}) {
        EXPECT_EQ(ng_rtnl_bridge_enslave(bridge, "port0"), 0);
        EXPECT_TRUE(link_tells("port0", std::string(" master ") + bridge));
    }
    for (int times = 0; times < 2; times++) {
        EXPECT_EQ(ng_rtnl_bridge_release("port0"), 0);
        EXPECT_FALSE(link_tells("port0", "master"));
    }
    errno = 0;
    EXPECT_EQ(ng_rtnl_bridge_enslave("br-a", "br-b"), -1);
    EXPECT_NE(errno, 0); // ELOOP or EINVAL, by the kernel's age
    EXPECT_EQ(ng_rtnl_bridge_enslave("br-a", "lo"), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ng_rtnl_bridge_enslave("port1", "port0"), -1);
    EXPECT_FALSE(link_tells("port0", "master"));
    for (const char *name : {"br-a", "br-b", "port0"})
        EXPECT_EQ(ng_rtnl_iface_destroy(name), 0);
}

TEST_F(rtnl_node, links_go_up_and_down_and_run_when_the_other_end_does)
{
    ASSERT_EQ(ip("link add up0 type veth peer name up1").status, 0);
    EXPECT_FALSE(ng_rtnl_iface_link_get_up("up0", true));
    EXPECT_EQ(ng_rtnl_iface_set_up("up0", true), 0);
    EXPECT_TRUE(link_tells("up0", ",UP"));
    EXPECT_TRUE(ng_rtnl_iface_link_get_up("up0", true));
    // The kernel looks for the carrier in its own time.
    bool running = true;
    for (int tries = 0; running && tries < 200; tries++) {
        running = ng_rtnl_iface_link_get_up("up0", false);
        usleep(10000);
    }
    EXPECT_FALSE(running);
    EXPECT_EQ(ng_rtnl_iface_link_set_up("up1", true, true), 0);
    EXPECT_TRUE(link_tells("up0", ",LOWER_UP"));
    EXPECT_TRUE(ng_rtnl_iface_link_get_retry("up0", false));
    EXPECT_EQ(ng_rtnl_iface_set_up("up0", false), 0);
    EXPECT_FALSE(link_tells("up0", ",UP"));
    EXPECT_FALSE(ng_rtnl_iface_link_get_up("up0", true));
    EXPECT_EQ(ng_rtnl_iface_index_get_retry("up1"), if_nametoindex("up1"));
    EXPECT_EQ(ng_rtnl_iface_destroy("up0"), 0);
}

TEST_F(rtnl_node, vlans)
{
    ASSERT_EQ(ip("link add long-br-name type bridge").status, 0);
    if (ip("link add link long-br-name name probe type vlan id 7").status != 0) {
        ip("link del long-br-name");
        GTEST_SKIP() << "this kernel has no VLANs (the kernel lab has)";
    }
    EXPECT_EQ(ng_rtnl_iface_create_vlan("long-br-name", 4094), 0);
    EXPECT_EQ(ng_rtnl_iface_create_vlan("long-br-name", 4094), 0);
    EXPECT_TRUE(link_tells("long-br-name.40", "@long-br-name: ") &&
                link_tells("long-br-name.40", " vlan protocol 802.1Q id 4094 "));
    EXPECT_EQ(ng_rtnl_iface_destroy("long-br-name"), 0);
}

TEST_F(rtnl_node, rules_are_added_once_listed_and_deleted)
{
    const std::string RULES = "rule show pref 500";
    const struct {
        const char *iif;
        uint32_t src, dst;
        int dst_len, table, priority;
        const char *listed;
    } cases[] = {
        {"lo", 0, 0, 0, 20, 500, "all iif lo lookup 20"},
        {nullptr, 0, 0, 0, 10, -1, "all lookup 10"},
        {"fifteen-chars-x", 0x0a000001, 0xc0a8014d, 24, 300, 500,
         "10.0.0.1 to 192.168.1.0/24 iif fifteen-chars-x [detached] lookup 300"},
        {nullptr, 0, 0xc0a8014d, 32, 0, 500, "all to 192.168.1.77 lookup main"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.listed);
        auto change = [&](decltype(ng_rtnl_iface_rule_add) *call) {
            return call(c.iif, c.src, c.dst, c.dst_len, c.table, c.priority);
        };
        EXPECT_EQ(change(ng_rtnl_iface_rule_add), 0);
        EXPECT_EQ(change(ng_rtnl_iface_rule_add), 0);
        EXPECT_EQ(ip(RULES).output, std::string("500:\tfrom ") + c.listed + "\n");
        EXPECT_EQ(change(ng_rtnl_iface_rule_del), 0);
        EXPECT_EQ(ip(RULES).output, "");
        errno = 0;
        EXPECT_EQ(change(ng_rtnl_iface_rule_del), -1);
        EXPECT_EQ(errno, ENOENT);
    }
    EXPECT_EQ(ng_rtnl_iface_rule_add(nullptr, 0, 0x0a000001, 33, 20, 500), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ng_rtnl_iface_rule_add("sixteen-chars-xx", 0, 0, 0, 20, 500), -1);
    EXPECT_EQ(ip(RULES).output, "");
}

TEST_F(rtnl_node, the_kernel_refuses_an_interface_that_is_gone)
{
    rtnl_handle rtnl;
    ASSERT_EQ(ng_rtnl_open(&rtnl, 0), 0);
    for (uint16_t type : {RTM_DELLINK, RTM_SETLINK, RTM_GETLINK}) {
        rtnl_link_request request = rtnl_link_request_make(type, NLM_F_REQUEST, 0x7ffffff0);
        rtnl_answer answer;
        errno = 0;
        EXPECT_EQ(ng_rtnl_send(&rtnl, &request.header, type == RTM_GETLINK ? &answer : nullptr),
                  -1);
        EXPECT_EQ(errno, ENODEV);
        EXPECT_EQ(log.take(), lines{"ERROR RTNETLINK answers: No such device (-19)"});
    }
    // A handle serves one request after the other.
    rtnl_link_request request = rtnl_link_request_make(RTM_GETLINK, NLM_F_REQUEST, 1);
    rtnl_answer answer;
    EXPECT_EQ(ng_rtnl_send(&rtnl, &request.header, &answer), 0);
    ng_rtnl_close(&rtnl);
    EXPECT_EQ(rtnl.fd, -1);
    EXPECT_EQ(ng_rtnl_send(&rtnl, &request.header, nullptr), -1);
}
