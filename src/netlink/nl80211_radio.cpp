// The description of a radio, put together from the many messages the kernel splits it into.
#include <algorithm>
#include <cstring>
#include <linux/nl80211.h>

#include "netlink/nl80211_internal.h"
#include "netlink/nl_attr.h"

static_assert(NG_NL80211_DFS_USABLE == static_cast<int>(NL80211_DFS_USABLE));
static_assert(NG_NL80211_DFS_UNAVAILABLE == static_cast<int>(NL80211_DFS_UNAVAILABLE));
static_assert(NG_NL80211_DFS_AVAILABLE == static_cast<int>(NL80211_DFS_AVAILABLE));

constexpr auto WIPHY_POLICY = [] {
    nl_policy<NL80211_ATTR_WIPHY_BANDS> policy = {};
    policy[NL80211_ATTR_WIPHY] = nl_policy_type(NLA_U32);
    policy[NL80211_ATTR_WIPHY_NAME] = nl_policy_type(NLA_STRING);
    policy[NL80211_ATTR_WIPHY_BANDS] = nl_policy_type(NLA_NESTED);
    return policy;
}();

constexpr auto BAND_POLICY = [] {
    nl_policy<NL80211_BAND_ATTR_FREQS> policy = {};
    policy[NL80211_BAND_ATTR_FREQS] = nl_policy_type(NLA_NESTED);
    return policy;
}();

constexpr auto FREQUENCY_POLICY = [] {
    nl_policy<NL80211_FREQUENCY_ATTR_DFS_TIME> policy = {};
    for (int number : {NL80211_FREQUENCY_ATTR_FREQ, NL80211_FREQUENCY_ATTR_MAX_TX_POWER,
                       NL80211_FREQUENCY_ATTR_DFS_STATE, NL80211_FREQUENCY_ATTR_DFS_TIME})
        policy[number] = nl_policy_type(NLA_U32);
    return policy;
}();

static ng_nl80211_radio *radio_get(std::vector<ng_nl80211_radio> *radios, uint32_t wiphy)
{
    auto found = std::ranges::find(*radios, wiphy, &ng_nl80211_radio::wiphy);
    if (found != radios->end())
        return &*found;
    return &radios->emplace_back(ng_nl80211_radio{wiphy, {}, {}});
}

static bool channel_read(nlattr *nest, ng_nl80211_channel *out)
{
    nl_attributes<NL80211_FREQUENCY_ATTR_DFS_TIME> attrs;
    if (!nl_nest_parse(&attrs, nest, FREQUENCY_POLICY) || !attrs[NL80211_FREQUENCY_ATTR_FREQ])
        return false;
    *out = {};
    out->frequency_mhz = nla_get_u32(attrs[NL80211_FREQUENCY_ATTR_FREQ]);
    out->disabled = attrs[NL80211_FREQUENCY_ATTR_DISABLED] != nullptr;
    out->no_ir = attrs[NL80211_FREQUENCY_ATTR_NO_IR] != nullptr;
    out->radar = attrs[NL80211_FREQUENCY_ATTR_RADAR] != nullptr;
    out->dfs_state = nl_u32(attrs[NL80211_FREQUENCY_ATTR_DFS_STATE]);
    out->dfs_state_ms = nl_u32(attrs[NL80211_FREQUENCY_ATTR_DFS_TIME]).value_or(0);
    out->max_power_mbm = nl_u32(attrs[NL80211_FREQUENCY_ATTR_MAX_TX_POWER]).value_or(0);
    return true;
}

static void band_merge(nlattr *band, ng_nl80211_radio *radio)
{
    nl_attributes<NL80211_BAND_ATTR_FREQS> attrs;
    if (!nl_nest_parse(&attrs, band, BAND_POLICY) || !attrs[NL80211_BAND_ATTR_FREQS])
        return;
    nlattr *frequency;
    int rest;
    nla_for_each_nested(frequency, attrs[NL80211_BAND_ATTR_FREQS], rest)
    {
        ng_nl80211_channel channel;
        if (channel_read(frequency, &channel))
            radio->channels.push_back(channel);
    }
}

bool nl80211_radio_merge(nlmsghdr *message, std::vector<ng_nl80211_radio> *radios)
{
    if (!genlmsg_valid_hdr(message, 0))
        return false;
    auto *generic = static_cast<genlmsghdr *>(nlmsg_data(message));
    nl_attributes<NL80211_ATTR_WIPHY_BANDS> attrs;
    if (generic->cmd != NL80211_CMD_NEW_WIPHY || !nl_message_parse(&attrs, generic, WIPHY_POLICY) ||
        !attrs[NL80211_ATTR_WIPHY])
        return false;
    ng_nl80211_radio *radio = radio_get(radios, nla_get_u32(attrs[NL80211_ATTR_WIPHY]));
    if (attrs[NL80211_ATTR_WIPHY_NAME])
        radio->name = nla_get_string(attrs[NL80211_ATTR_WIPHY_NAME]);
    if (!attrs[NL80211_ATTR_WIPHY_BANDS])
        return true;
    nlattr *band;
    int rest;
    nla_for_each_nested(band, attrs[NL80211_ATTR_WIPHY_BANDS], rest) band_merge(band, radio);
    return true;
}
