// Which channels are DFS channels; what happens on radar is not decided here.

#include "wifi/radio/dfs.h"

#include <cstring>

#include "platform/zu/platform_data.h"

static void add_channel(wifi_dfs_table &table, size_t *count, const ng_nl80211_channel &channel)
{
    const int number = sys_freq2chan(static_cast<int>(channel.frequency_mhz));
    if (number == 0 || *count == WIFI_DFS_CHANNELS)
        return;
    for (size_t i = 0; i < *count; i++)
        if (table[i].channel == number)
            return;
    table[(*count)++] = {number, *channel.dfs_state};
}

wifi_dfs_table wifi_dfs_channel_table()
{
    wifi_dfs_table table{};
    std::vector<ng_nl80211_radio> radios;
    if (ng_nl80211_radio_list(&radios) != 0)
        return table;
    size_t count = 0;
    for (const ng_nl80211_radio &radio : radios)
        for (const ng_nl80211_channel &channel : radio.channels)
            if (channel.dfs_state && !channel.disabled)
                add_channel(table, &count, channel);
    return table;
}

bool wifi_dfs_is_usable(const wifi_dfs_channel &entry)
{
    return entry.state == NG_NL80211_DFS_USABLE || entry.state == NG_NL80211_DFS_AVAILABLE;
}

bool wifi_channel_needs_dfs(int channel)
{
    return (channel >= 52 && channel <= 64) || (channel >= 100 && channel <= 144);
}

bool wifid_channel_is_dfs(int channel, const char *htmode)
{
    return platform_wireless_get_dfs_support() &&
           (wifi_channel_needs_dfs(channel) || strstr(htmode, "160"));
}
