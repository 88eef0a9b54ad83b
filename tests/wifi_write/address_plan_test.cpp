// What follows from a text or a number alone: addresses from a node id or a MAC address, which
// channels radar concerns, the orphan network's key.
#include <gtest/gtest.h>

#include "wifi/radio/dfs.h"
#include "wifi/write/address_plan.h"
#include "wifi/write/orphan_key.h"

TEST(AddressPlan, FollowsTheNodeIdElseTheMacElseAFixedBase)
{
    const struct {
        int32_t node_id;
        const char *mac;
        const char *gateway, *ssid1, *ssid4;
    } cases[] = {
        {0, nullptr, "10.255.252.1", "10.255.248.1", "10.255.236.1"},
        {1, "02:00:00:00:12:34", "10.255.232.1", "10.255.228.1", "10.255.216.1"},
        {12, nullptr, "10.255.12.1", "10.255.8.1", "10.254.252.1"},
        {3276, nullptr, "10.0.12.1", "10.0.8.1", "10.255.252.1"}, // SSIDs 4 and node 0's gateway
        {3277, nullptr, "10.255.248.1", "10.255.244.1", "10.255.232.1"}, // round once
        {INT32_MAX, nullptr, "10.0.16.1", "10.0.12.1", "10.0.0.1"},
        {-1, "02:1a:c0:00:12:34", "10.72.204.1", "10.72.200.1", "10.72.188.1"},
        {INT32_MIN, "02:1a:c0:00:ff:ff", "10.255.248.1", "10.255.244.1", "10.255.232.1"},
        {-1, "02:1a:c0:00:00:00", "10.255.252.1", "10.255.248.1", "10.255.236.1"},
        {-1, "2:1:c:0:40:1", "10.0.0.1", "10.255.252.1", "10.255.240.1"}, // bits 6 and 7 dropped
        {-1, nullptr, "10.252.252.1", "10.252.248.1", "10.252.236.1"},
        {-1, "02:1a:c0:00:12", "10.252.252.1", "10.252.248.1", "10.252.236.1"},
        {-1, "none", "10.252.252.1", "10.252.248.1", "10.252.236.1"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.node_id) + " " + (c.mac ? c.mac : "-"));
        const uint32_t base = wifi_plan_base(c.node_id, c.mac);
        EXPECT_EQ(wifi_plan_address(base), c.gateway);
        EXPECT_EQ(wifi_plan_address(wifi_plan_ssid(base, 1)), c.ssid1);
        EXPECT_EQ(wifi_plan_address(wifi_plan_ssid(base, 4)), c.ssid4);
    }
}

TEST(AddressPlan, NetmaskBits)
{
    for (const auto &[mask, bits] :
         {std::pair("255.255.252.0", 22), std::pair("255.255.255.255", 32), std::pair("0.0.0.0", 0),
          std::pair("255.0.255.0", 16), std::pair("", 0), std::pair("255.255.255", 0),
          std::pair("255.255.255.256", 0), std::pair("24", 0)})
        EXPECT_EQ(wifi_netmask_bits(mask), bits) << mask;
}

TEST(DfsChannel, LiesBetweenTheOthers)
{
    for (const auto &[channel, dfs] :
         {std::pair(48, false), std::pair(52, true), std::pair(64, true), std::pair(100, true),
          std::pair(144, true), std::pair(149, false)})
        EXPECT_EQ(wifi_channel_needs_dfs(channel), dfs) << channel;
}

TEST(OrphanKey, DependsOnTheFirstNineteenCharactersWhateverTheirCase)
{
    std::string key, other;
    ASSERT_EQ(wifi_generate_orphan_key("02:1A:C0:00:00:0F", &key), 0);
    EXPECT_EQ(key, "fecef1f3c3e208cd8b6a087a9b29ffa3");
    ASSERT_EQ(wifi_generate_orphan_key("02:1a:c0:00:00:0f", &other), 0);
    EXPECT_EQ(key, other);
    ASSERT_EQ(wifi_generate_orphan_key("02:1a:c0:00:00:0f.12 and more", &key), 0);
    ASSERT_EQ(wifi_generate_orphan_key("02:1a:c0:00:00:0f.1", &other), 0);
    EXPECT_EQ(key, other);
    ASSERT_EQ(wifi_generate_orphan_key("02:1a:c0:00:00:0e", &other), 0);
    EXPECT_NE(key, other);
    EXPECT_EQ(wifi_generate_orphan_key(nullptr, &other), -1);
    EXPECT_EQ(wifi_generate_orphan_key("02:1a:c0:00:00:0f", nullptr), -1);
}
