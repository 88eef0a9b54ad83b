// Address arithmetic; pure.
#include "wifi/write/address_plan.h"

#include <arpa/inet.h>
#include <bit>
#include <cstdio>

#include "platform/zu/mac.h"

constexpr uint32_t BASE_WITHOUT_ANYTHING = 0xFD00;
constexpr uint32_t NETWORK_STEP = 4; // third octets in a /22

static uint32_t base_of_mac(const char *mac)
{
    zu_mac m;
    if (!mac || !zu_mac_read(mac, &m))
        return BASE_WITHOUT_ANYTHING;
    return (static_cast<uint32_t>(m[4] & 0x3F) << 10) | (static_cast<uint32_t>(m[5]) << 2);
}

uint32_t wifi_plan_base(int32_t node_id, const char *management_mac)
{
    // Unsigned, so that any id wraps around instead of overflowing.
    const uint32_t start = node_id >= 0 ? (static_cast<uint32_t>(node_id) * -20u) & 0xFFFC
                                        : base_of_mac(management_mac);
    return (start & 0xFFFF) - NETWORK_STEP;
}

uint32_t wifi_plan_ssid(uint32_t base, int ssid)
{
    return base - NETWORK_STEP * static_cast<uint32_t>(ssid);
}

std::string wifi_plan_address(uint32_t value)
{
    char text[16];
    snprintf(text, sizeof text, "10.%u.%u.1", (value >> 8) & 0xFF, value & 0xFF);
    return text;
}

bool wifi_is_ipv4(const char *text)
{
    in_addr address;
    return inet_pton(AF_INET, text, &address) == 1;
}

int wifi_netmask_bits(const char *netmask)
{
    in_addr mask;
    return inet_pton(AF_INET, netmask, &mask) == 1 ? std::popcount(mask.s_addr) : 0;
}
