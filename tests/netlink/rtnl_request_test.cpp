// Route netlink requests, byte by byte, as they leave through the socket, and the bounds of the
// attribute writer.
#include <cstring>
#include <limits>

#include "netlink/netlink_fixture.h"
#include "netlink/rtnl.h"
#include "netlink/rtnl_internal.h"
#include "platform/zu/log.h"

class RtnlRequest : public netlink_fixture {
protected:
    void SetUp() override
    {
        netlink_fixture::SetUp();
        kernel.interfaces = {
            {"bat0", 7}, {"br-lan", 0x1234}, {"wlan0", 3}, {"lo", 1}, {"fifteen-chars-x", 9}};
    }

    /// The one request sent since the last call, sequence number taken out.
    std::string sent()
    {
        if (kernel.requests.size() != 1)
            return std::to_string(kernel.requests.size()) + " requests";
        bytes request = kernel.requests[0];
        kernel.requests.clear();
        std::fill(request.begin() + 8, request.begin() + 12, 0);
        return to_hex(request);
    }
};

// Headers: length, type, flags, sequence number (blanked), port. Flag 4 asks for the
// acknowledgement.
TEST_F(RtnlRequest, LinksAreAskedForByteByByte)
{
    const struct {
        const char *what;
        int (*call)();
        const char *expected;
    } cases[] = {
        {"VLAN 11 on bat0", [] { return ng_rtnl_iface_create_vlan("bat0", 11); },
         "4c000000 1000 0506 00000000 00000000" // create, exclusive
         "11000000 00000000 00000000 00000000"  // family 17
         "1800 1200"                            // link info
         "0800 0100 766c616e"                   // kind "vlan"
         "0c00 0200 0600 0100 0b00 0000"        // data: id 11, padded
         "0800 0500 07000000"                   // link 7
         "0b00 0300 626174302e3131 00"},        // "bat0.11", no NUL, padded
        {"VLAN 4094, name cut to 15 characters",
         [] { return ng_rtnl_iface_create_vlan("fifteen-chars-x", 4094); },
         "54000000 1000 0506 00000000 00000000 11000000 00000000 00000000 00000000"
         "1800 1200 0800 0100 766c616e 0c00 0200 0600 0100 fe0f 0000"
         "0800 0500 09000000 1300 0300 6669667465656e2d63686172732d78 00"},
        {"batman-adv", [] { return _ng_rtnl_iface_create(RTNL_KIND_BATADV, "bat1", 0); },
         "38000000 1000 0506 00000000 00000000 11000000 00000000 00000000 00000000"
         "1000 1200 0a00 0100 626174616476 0000 0800 0300 62617431"},
        {"bridge", [] { return _ng_rtnl_iface_create(RTNL_KIND_BRIDGE, "br-ssid1_vlan", 5); },
         "44000000 1000 0506 00000000 00000000 11000000 00000000 00000000 00000000"
         "1000 1200 0a00 0100 627269646765 0000"
         "1100 0300 62722d73736964315f766c616e 000000"},
        {"destroy", [] { return ng_rtnl_iface_destroy("br-lan"); },
         "20000000 1100 0500 00000000 00000000 11000000 34120000 00000000 00000000"},
        {"enslave", [] { return ng_rtnl_bridge_enslave("br-lan", "wlan0"); },
         "28000000 1300 0500 00000000 00000000 11000000 03000000 00000000 00000000"
         "0800 0a00 34120000"},
        {"release", [] { return ng_rtnl_bridge_release("wlan0"); },
         "28000000 1300 0500 00000000 00000000 11000000 03000000 00000000 00000000"
         "0800 0a00 00000000"},
        {"up", [] { return ng_rtnl_iface_set_up("wlan0", true); },
         "20000000 1000 0500 00000000 00000000 11000000 03000000 01000000 01000000"},
        {"up and running", [] { return ng_rtnl_iface_link_set_up("wlan0", true, true); },
         "20000000 1000 0500 00000000 00000000 11000000 03000000 41000000 01000000"},
        {"down, whatever running says",
         [] { return ng_rtnl_iface_link_set_up("wlan0", false, true); },
         "20000000 1000 0500 00000000 00000000 11000000 03000000 00000000 01000000"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        kernel.answer({error_message(0)});
        EXPECT_EQ(c.call(), 0);
        EXPECT_EQ(sent(), to_hex(route_hex(c.expected)));
    }
    // Asking for the state wants the answer, not an acknowledgement.
    kernel.answer({error_message(-EPERM)});
    EXPECT_FALSE(ng_rtnl_iface_link_get_up("wlan0", true));
    EXPECT_EQ(sent(), to_hex(route_hex("20000000 1200 0100 00000000 00000000"
                                       "11000000 03000000 00000000 00000000")));
}

TEST_F(RtnlRequest, RulesAreAskedForByteByByte)
{
    const uint32_t src = 0x0a000001, dst = 0xc0a8014d; // 10.0.0.1, 192.168.1.77
    const struct {
        const char *what;
        bool add;
        const char *iif;
        uint32_t src, dst;
        int dst_len, table, priority;
        const char *expected;
    } cases[] = {
        {"lo to table 20", true, "lo", 0, 0, 0, 20, 500,
         "2c000000 2000 0506 00000000 00000000 02000000 14000001 00000000"
         "0800 0600 f4010000 0700 0300 6c6f00 00"},
        {"the same, deleted: no action, no flags", false, "lo", 0, 0, 0, 20, 500,
         "2c000000 2100 0500 00000000 00000000 02000000 14000000 00000000"
         "0800 0600 f4010000 0700 0300 6c6f00 00"},
        {"any packet, default priority, main table", true, nullptr, 0, 0, 0, 0, -1,
         "24000000 2000 0506 00000000 00000000 02000000 fe000001 00000000 0800 0600 f4010000"},
        {"table 300 as an attribute, host bits cleared", true, nullptr, src, dst, 24, 300, 0,
         "3c000000 2000 0506 00000000 00000000 02182000 00000001 00000000"
         "0800 0600 00000000 0800 0f00 2c010000 0800 0200 0a000001 0800 0100 c0a80100"},
        {"table 255 in the header", true, nullptr, 0, dst, 32, 255, 7,
         "2c000000 2000 0506 00000000 00000000 02200000 ff000001 00000000"
         "0800 0600 07000000 0800 0100 c0a8014d"},
        {"length 0 keeps the whole address", true, nullptr, 0, dst, 0, 20, 7,
         "2c000000 2000 0506 00000000 00000000 02000000 14000001 00000000"
         "0800 0600 07000000 0800 0100 c0a8014d"},
        {"length 1", false, nullptr, 0, dst, 1, 20, 7,
         "2c000000 2100 0500 00000000 00000000 02010000 14000000 00000000"
         "0800 0600 07000000 0800 0100 80000000"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        kernel.answer({error_message(0)});
        auto change = c.add ? ng_rtnl_iface_rule_add : ng_rtnl_iface_rule_del;
        EXPECT_EQ(change(c.iif, c.src, c.dst, c.dst_len, c.table, c.priority), 0);
        EXPECT_EQ(sent(), to_hex(route_hex(c.expected)));
    }
    EXPECT_EQ(log.take()[3], "INFO adding iif (null) from 10.0.0.1 to 192.168.1.77/24 table 300");
    EXPECT_EQ(ng_rtnl_iface_rule_add(std::string(300, 'x').c_str(), 0, 0, 0, 20, 500), -1);
    EXPECT_EQ(log.take()[1], "ERROR message exceeded bound of 284");
    EXPECT_TRUE(kernel.requests.empty());
}

TEST_F(RtnlRequest, BadArgumentsAreRefusedBeforeAnythingIsSent)
{
    const struct {
        int (*call)();
        lines expected;
    } cases[] = {
        {[] { return ng_rtnl_iface_create_vlan(nullptr, 1); }, {"ERROR ifname is NULL"}},
        {[] { return _ng_rtnl_iface_create(4, "bat0", 1); }, {"ERROR invalid rtnl iface type 4"}},
        {[] { return _ng_rtnl_iface_create(RTNL_KIND_BRIDGE, "", 1); },
         {"ERROR ifname name has invalid length: ''"}},
        {[] { return _ng_rtnl_iface_create(RTNL_KIND_BRIDGE, "x", 1); },
         {"ERROR ifname name has invalid length: 'x'"}},
        {[] { return _ng_rtnl_iface_create(RTNL_KIND_BRIDGE, "sixteen-chars-xx", 1); },
         {"ERROR ifname name has invalid length: 'sixteen-chars-xx'"}},
        {[] { return ng_rtnl_iface_create_vlan("bat0", 4095); }, {"ERROR invalid vid: 4095"}},
        {[] { return ng_rtnl_iface_create_vlan("bat9", 1); },
         {"ERROR bat9: failed to get ifindex: No such device"}},
        {[] { return ng_rtnl_iface_destroy(nullptr); }, {"ERROR name is NULL"}},
        {[] { return ng_rtnl_iface_destroy("x"); },
         {"NOTICE destroying iface x", "ERROR iface name has invalid length: 'x'"}},
        {[] { return ng_rtnl_iface_destroy("bat9"); },
         {"NOTICE destroying iface bat9", "INFO bat9: failed to get ifindex: No such device"}},
        {[] { return ng_rtnl_bridge_enslave("br-lan", nullptr); }, {"ERROR port is NULL"}},
        {[] { return ng_rtnl_bridge_enslave("br-lan", "eth9"); },
         {"NOTICE enslaving eth9 in bridge br-lan",
          "ERROR eth9: failed to get ifindex (slave): No such device"}},
        {[] { return ng_rtnl_bridge_enslave("br-x", "wlan0"); },
         {"NOTICE enslaving wlan0 in bridge br-x",
          "ERROR br-x: failed to get ifindex (bridge): No such device"}},
        {[] { return (int)ng_rtnl_iface_link_get_up(nullptr, true) - 1; }, {"ERROR iface is NULL"}},
        {[] { return (int)ng_rtnl_iface_link_get_retry(nullptr, true) - 1; },
         {"ERROR iface is NULL"}},
        {[] { return (int)ng_rtnl_iface_index_get_retry(nullptr) - 1; }, {"ERROR iface is NULL"}},
        {[] { return ng_rtnl_iface_set_up(nullptr, true); }, {"ERROR iface is NULL"}},
        {[] { return ng_rtnl_send(nullptr, nullptr, nullptr); }, {"ERROR rtnl is NULL"}},
        {[] { return ng_rtnl_open(nullptr, 0); }, {"ERROR rtnl is NULL"}},
        {[] { return ng_rtnl_rule_set(nullptr, {}); }, {"ERROR rtnl is NULL"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.call(), -1) << c.expected.back();
        EXPECT_EQ(log.take(), c.expected);
        EXPECT_TRUE(kernel.requests.empty());
    }
}

TEST_F(RtnlRequest, AnInterfaceThatIsNotThereIsLookedUpThreeTimes)
{
    EXPECT_EQ(ng_rtnl_iface_set_up("eth9", false), -1);
    EXPECT_EQ(kernel.slept_s, 2u);
    EXPECT_EQ(log.take(),
              (lines{"NOTICE set iface eth9 down",
                     "WARNING eth9: failed to get ifindex: retries left = 2: No such device",
                     "WARNING eth9: failed to get ifindex: retries left = 1: No such device",
                     "ERROR eth9: failed to get ifindex (exhausted retries): No such device",
                     "ERROR eth9: failed to get ifindex"}));
}

TEST_F(RtnlRequest, NoAttributeReachesPastItsBuffer)
{
    constexpr size_t GUARD = 16, LARGEST = 64;
    const bytes data(LARGEST + 8, 0xda);
    debug_set_level(0);
    for (size_t maxlen = 0; maxlen <= LARGEST; maxlen++) {
        for (uint32_t used = 16; used <= 32; used++) {
            for (size_t len = 0; len <= LARGEST; len++) {
                alignas(8) uint8_t buffer[LARGEST + GUARD];
                memset(buffer, 0xee, sizeof buffer);
                auto *msg = reinterpret_cast<nlmsghdr *>(buffer);
                msg->nlmsg_len = used;
                const size_t start = (used + 3) / 4 * 4, end = start + (4 + len + 3) / 4 * 4;
                const bool fits = end <= maxlen;
                ASSERT_EQ(ng_addattr_l(msg, maxlen, 5, data.data(), len), fits ? 0 : -1)
                    << maxlen << " " << used << " " << len;
                ASSERT_EQ(msg->nlmsg_len, fits ? end : used);
                const bytes expected = attr(5, bytes(data.begin(), data.begin() + (long)len));
                if (fits) {
                    ASSERT_EQ(bytes(buffer + start, buffer + end), expected);
                }
                const size_t written = fits ? end : 16;
                ASSERT_EQ(bytes(buffer + written, std::end(buffer)),
                          bytes(sizeof buffer - written, 0xee));
            }
        }
    }
}

TEST_F(RtnlRequest, AbsurdLengthsAreRefused)
{
    constexpr size_t HUGE_SIZE = std::numeric_limits<size_t>::max();
    const struct {
        uint32_t used;
        size_t maxlen, len;
    } cases[] = {
        {16, 288, HUGE_SIZE},     {16, 288, HUGE_SIZE - 3}, {16, HUGE_SIZE, HUGE_SIZE},
        {16, HUGE_SIZE, 65532},   {0xffffffff, 288, 0},     {0xfffffffc, 288, 4},
        {0xfffffff0, 288, 65531}, {16, 65535, 65531},       {16, 0, 0},
    };
    for (const auto &c : cases) {
        nlmsghdr msg = {};
        msg.nlmsg_len = c.used;
        EXPECT_EQ(ng_addattr_l(&msg, c.maxlen, 1, "", c.len), -1);
        EXPECT_EQ(msg.nlmsg_len, c.used);
    }
    EXPECT_EQ(ng_addattr_l(nullptr, 288, 1, "", 1), -1);
    EXPECT_EQ(log.take().back(), "ERROR msg is NULL");
    // The longest attribute there is.
    bytes buffer(70000), data(65531, 7);
    auto *msg = reinterpret_cast<nlmsghdr *>(buffer.data());
    msg->nlmsg_len = 16;
    EXPECT_EQ(ng_addattr_l(msg, buffer.size(), 1, data.data(), data.size()), 0);
    const bytes longest = attr(1, data);
    EXPECT_TRUE(std::equal(longest.begin(), longest.end(), buffer.begin() + 16));
}
