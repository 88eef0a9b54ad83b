// VLANs on the kernel this runs on, in a network namespace of its own, as iproute2 sees them: what
// a request byte by byte cannot show.
#include <gtest/gtest.h>

#include "netlink/rtnl.h"
#include "support/open_descriptors.h"
#include "support/run.h"

TEST(RtnlNode, VlansAreCreatedOnceAndGoWithTheirLink)
{
    if (run("ip link add long-br-name type bridge &&"
            " ip link add link long-br-name name probe type vlan id 7")
            .status != 0)
        GTEST_SKIP() << "no network namespace of its own, bridges or VLANs (the kernel lab has)";
    const long descriptors = open_descriptors();
    for (int times = 0; times < 2; times++)
        EXPECT_EQ(ng_rtnl_iface_create_vlan("long-br-name", 4094), 0);
    const std::string link = run("ip -o -d link show dev long-br-name.40").output;
    EXPECT_NE(link.find("@long-br-name: "), std::string::npos) << link;
    EXPECT_NE(link.find(" vlan protocol 802.1Q id 4094 "), std::string::npos) << link;
    EXPECT_EQ(ng_rtnl_iface_destroy("long-br-name"), 0);
    EXPECT_NE(run("ip link show dev long-br-name.40").status, 0);
    EXPECT_EQ(open_descriptors(), descriptors);
}
