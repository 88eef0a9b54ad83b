// Channels on which radar has priority (dynamic frequency selection).
#pragma once

#include <array>
#include <cstdint>

#include "netlink/nl80211.h"

/// A radar event was seen; shown in the wireless dump.
extern bool dfs_event_detected;

struct wifi_dfs_channel {
    int32_t channel; ///< 0 ends the table
    uint32_t state;  ///< ng_nl80211_dfs_state
};
/// Every DFS channel there can be, and the end.
constexpr size_t WIFI_DFS_CHANNELS = 64;
using wifi_dfs_table = std::array<wifi_dfs_channel, WIFI_DFS_CHANNELS + 1>;
/// The DFS channels of all radios as the kernel describes them now, each once.
wifi_dfs_table wifi_dfs_channel_table();
/// True when the channel may be used now or after an availability check.
bool wifi_dfs_is_usable(const wifi_dfs_channel &entry);

/// True for the 5 GHz channels that need radar detection: 52 to 64 and 100 to 144.
bool wifi_channel_needs_dfs(int channel);

/// True when a radio on this channel and HT mode may be made to leave it by radar: the platform has
/// DFS support, and either the channel needs it or the mode ("VHT160", ...) is 160 MHz wide, which
/// always covers such channels.
bool wifid_channel_is_dfs(int channel, const char *htmode);
