// nl80211 messages as records: interfaces, stations, surveys (one message each) and events. The
// description of a radio, which comes in pieces, is put together in nl80211_radio.cpp.
#include <cstring>
#include <linux/nl80211.h>
#include <net/if.h>

#include "netlink/nl80211_internal.h"
#include "netlink/nl_attr.h"

constexpr uint32_t RATE_UNIT_KBPS = 100;
constexpr uint16_t MAC_LENGTH = std::tuple_size_v<zu_mac>;
/// Attributes above this one are of no use here; old kernels know fewer, new ones more.
constexpr size_t HIGHEST_ATTR = 294;

static_assert(NG_NL80211_CH_SWITCH_NOTIFY == static_cast<int>(NL80211_CMD_CH_SWITCH_NOTIFY));
static_assert(NG_NL80211_RADAR_DETECT == static_cast<int>(NL80211_CMD_RADAR_DETECT));
static_assert(NG_NL80211_CH_SWITCH_STARTED_NOTIFY ==
              static_cast<int>(NL80211_CMD_CH_SWITCH_STARTED_NOTIFY));
static_assert(NG_NL80211_RADAR_PRE_CAC_EXPIRED == static_cast<int>(NL80211_RADAR_PRE_CAC_EXPIRED));

constexpr auto MESSAGE_POLICY = [] {
    nl_policy<HIGHEST_ATTR> policy = {};
    for (int number :
         {NL80211_ATTR_WIPHY, NL80211_ATTR_IFINDEX, NL80211_ATTR_IFTYPE, NL80211_ATTR_WIPHY_FREQ,
          NL80211_ATTR_CHANNEL_WIDTH, NL80211_ATTR_CENTER_FREQ1, NL80211_ATTR_WIPHY_TX_POWER_LEVEL,
          NL80211_ATTR_RADAR_EVENT, NL80211_ATTR_CH_SWITCH_COUNT})
        policy[number] = nl_policy_type(NLA_U32);
    policy[NL80211_ATTR_IFNAME] = nl_policy_type(NLA_STRING, IFNAMSIZ);
    policy[NL80211_ATTR_MAC] = nl_policy_fixed(MAC_LENGTH);
    policy[NL80211_ATTR_STA_INFO] = nl_policy_type(NLA_NESTED);
    policy[NL80211_ATTR_SURVEY_INFO] = nl_policy_type(NLA_NESTED);
    return policy;
}();

constexpr auto STATION_POLICY = [] {
    nl_policy<NL80211_STA_INFO_TX_BYTES64> policy = {};
    policy[NL80211_STA_INFO_SIGNAL] = nl_policy_type(NLA_U8);
    policy[NL80211_STA_INFO_RX_BYTES] = nl_policy_type(NLA_U32);
    policy[NL80211_STA_INFO_TX_BYTES] = nl_policy_type(NLA_U32);
    policy[NL80211_STA_INFO_RX_BYTES64] = nl_policy_type(NLA_U64);
    policy[NL80211_STA_INFO_TX_BYTES64] = nl_policy_type(NLA_U64);
    policy[NL80211_STA_INFO_RX_BITRATE] = nl_policy_type(NLA_NESTED);
    policy[NL80211_STA_INFO_TX_BITRATE] = nl_policy_type(NLA_NESTED);
    return policy;
}();

constexpr auto RATE_POLICY = [] {
    nl_policy<NL80211_RATE_INFO_BITRATE32> policy = {};
    policy[NL80211_RATE_INFO_BITRATE] = nl_policy_type(NLA_U16);
    policy[NL80211_RATE_INFO_BITRATE32] = nl_policy_type(NLA_U32);
    return policy;
}();

constexpr auto SURVEY_POLICY = [] {
    nl_policy<NL80211_SURVEY_INFO_TIME_TX> policy = {};
    policy[NL80211_SURVEY_INFO_FREQUENCY] = nl_policy_type(NLA_U32);
    policy[NL80211_SURVEY_INFO_NOISE] = nl_policy_type(NLA_U8);
    for (int counter : {NL80211_SURVEY_INFO_TIME, NL80211_SURVEY_INFO_TIME_BUSY,
                        NL80211_SURVEY_INFO_TIME_RX, NL80211_SURVEY_INFO_TIME_TX})
        policy[counter] = nl_policy_type(NLA_U64);
    return policy;
}();

uint32_t nl80211_width_mhz(uint32_t width)
{
    switch (width) {
    case NL80211_CHAN_WIDTH_20_NOHT:
    case NL80211_CHAN_WIDTH_20:
        return 20;
    case NL80211_CHAN_WIDTH_40:
        return 40;
    case NL80211_CHAN_WIDTH_80:
        return 80;
    case NL80211_CHAN_WIDTH_80P80:
    case NL80211_CHAN_WIDTH_160:
        return 160;
    case NL80211_CHAN_WIDTH_5:
        return 5;
    case NL80211_CHAN_WIDTH_10:
        return 10;
    case 13: // NL80211_CHAN_WIDTH_320, which older headers lack
        return 320;
    default:
        return 0;
    }
}

static uint32_t width_read(nlattr *width)
{
    return width ? nl80211_width_mhz(nla_get_u32(width)) : 0;
}

/// Reads the attributes of a message of `command`.
static bool message_parse(nl_attributes<HIGHEST_ATTR> *out, nlmsghdr *message, uint8_t command)
{
    if (!genlmsg_valid_hdr(message, 0))
        return false;
    auto *generic = static_cast<genlmsghdr *>(nlmsg_data(message));
    return generic->cmd == command && nl_message_parse(out, generic, MESSAGE_POLICY);
}

static zu_mac mac_read(nlattr *attribute)
{
    zu_mac mac = {};
    if (attribute)
        memcpy(mac.data(), nla_data(attribute), mac.size());
    return mac;
}

bool nl80211_iface_read(nlmsghdr *message, ng_nl80211_iface *out)
{
    nl_attributes<HIGHEST_ATTR> attrs;
    if (!message_parse(&attrs, message, NL80211_CMD_NEW_INTERFACE))
        return false;
    // Without these two it is not a network interface (a P2P device has none).
    if (!attrs[NL80211_ATTR_IFINDEX] || !attrs[NL80211_ATTR_IFNAME])
        return false;
    *out = {};
    out->name = nla_get_string(attrs[NL80211_ATTR_IFNAME]);
    out->ifindex = nla_get_u32(attrs[NL80211_ATTR_IFINDEX]);
    out->wiphy = nl_u32(attrs[NL80211_ATTR_WIPHY]).value_or(0);
    out->type = nl_u32(attrs[NL80211_ATTR_IFTYPE]).value_or(NL80211_IFTYPE_UNSPECIFIED);
    out->mac = mac_read(attrs[NL80211_ATTR_MAC]);
    out->frequency_mhz = nl_u32(attrs[NL80211_ATTR_WIPHY_FREQ]).value_or(0);
    out->width_mhz = width_read(attrs[NL80211_ATTR_CHANNEL_WIDTH]);
    out->center_mhz = nl_u32(attrs[NL80211_ATTR_CENTER_FREQ1]).value_or(0);
    out->txpower_mbm = nl_u32(attrs[NL80211_ATTR_WIPHY_TX_POWER_LEVEL]);
    return true;
}

static uint32_t rate_read_kbps(nlattr *nest)
{
    nl_attributes<NL80211_RATE_INFO_BITRATE32> attrs;
    if (!nl_nest_parse(&attrs, nest, RATE_POLICY))
        return 0;
    if (attrs[NL80211_RATE_INFO_BITRATE32])
        return nla_get_u32(attrs[NL80211_RATE_INFO_BITRATE32]) * RATE_UNIT_KBPS;
    if (attrs[NL80211_RATE_INFO_BITRATE])
        return nla_get_u16(attrs[NL80211_RATE_INFO_BITRATE]) * RATE_UNIT_KBPS;
    return 0;
}

/// The 64-bit counter, or the 32-bit one of kernels and drivers that only have that.
static uint64_t bytes_read(nlattr *bytes64, nlattr *bytes32)
{
    return bytes64 ? nla_get_u64(bytes64) : nl_u32(bytes32).value_or(0);
}

bool nl80211_station_read(nlmsghdr *message, ng_nl80211_station *out)
{
    nl_attributes<HIGHEST_ATTR> attrs;
    nl_attributes<NL80211_STA_INFO_TX_BYTES64> info;
    if (!message_parse(&attrs, message, NL80211_CMD_NEW_STATION) || !attrs[NL80211_ATTR_MAC] ||
        !nl_nest_parse(&info, attrs[NL80211_ATTR_STA_INFO], STATION_POLICY))
        return false;
    *out = {};
    out->mac = mac_read(attrs[NL80211_ATTR_MAC]);
    out->signal_dbm = nl_dbm(info[NL80211_STA_INFO_SIGNAL]);
    out->rx_rate_kbps = rate_read_kbps(info[NL80211_STA_INFO_RX_BITRATE]);
    out->tx_rate_kbps = rate_read_kbps(info[NL80211_STA_INFO_TX_BITRATE]);
    out->rx_bytes = bytes_read(info[NL80211_STA_INFO_RX_BYTES64], info[NL80211_STA_INFO_RX_BYTES]);
    out->tx_bytes = bytes_read(info[NL80211_STA_INFO_TX_BYTES64], info[NL80211_STA_INFO_TX_BYTES]);
    return true;
}

bool nl80211_survey_read(nlmsghdr *message, ng_nl80211_survey *out)
{
    nl_attributes<HIGHEST_ATTR> attrs;
    nl_attributes<NL80211_SURVEY_INFO_TIME_TX> info;
    if (!message_parse(&attrs, message, NL80211_CMD_NEW_SURVEY_RESULTS) ||
        !nl_nest_parse(&info, attrs[NL80211_ATTR_SURVEY_INFO], SURVEY_POLICY) ||
        !info[NL80211_SURVEY_INFO_FREQUENCY])
        return false;
    *out = {};
    out->frequency_mhz = nla_get_u32(info[NL80211_SURVEY_INFO_FREQUENCY]);
    out->in_use = info[NL80211_SURVEY_INFO_IN_USE] != nullptr;
    out->noise_dbm = nl_dbm(info[NL80211_SURVEY_INFO_NOISE]);
    out->active_ms = nl_u64_or_0(info[NL80211_SURVEY_INFO_TIME]);
    out->busy_ms = nl_u64_or_0(info[NL80211_SURVEY_INFO_TIME_BUSY]);
    out->rx_ms = nl_u64_or_0(info[NL80211_SURVEY_INFO_TIME_RX]);
    out->tx_ms = nl_u64_or_0(info[NL80211_SURVEY_INFO_TIME_TX]);
    return true;
}

bool nl80211_event_read(nlmsghdr *message, ng_nl80211_event *out)
{
    if (!genlmsg_valid_hdr(message, 0))
        return false;
    auto *generic = static_cast<genlmsghdr *>(nlmsg_data(message));
    *out = {};
    out->command = generic->cmd;
    nl_attributes<HIGHEST_ATTR> attrs;
    out->well_formed = nl_message_parse(&attrs, generic, MESSAGE_POLICY);
    if (!out->well_formed)
        return true;
    out->wiphy = nl_u32(attrs[NL80211_ATTR_WIPHY]);
    out->ifindex = nl_u32(attrs[NL80211_ATTR_IFINDEX]);
    out->frequency_mhz = nl_u32(attrs[NL80211_ATTR_WIPHY_FREQ]);
    out->radar_event = nl_u32(attrs[NL80211_ATTR_RADAR_EVENT]);
    out->width_mhz = width_read(attrs[NL80211_ATTR_CHANNEL_WIDTH]);
    out->center_mhz = nl_u32(attrs[NL80211_ATTR_CENTER_FREQ1]).value_or(0);
    out->ch_switch_count = nl_u32(attrs[NL80211_ATTR_CH_SWITCH_COUNT]);
    out->ch_switch_block_tx = attrs[NL80211_ATTR_CH_SWITCH_BLOCK_TX] != nullptr;
    return true;
}
