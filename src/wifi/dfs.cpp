// Which channels are DFS channels; what happens on radar is not decided here.

#include "wifi/dfs.h"

#include "platform/zu/platform_data.h"

#include <cstring>

bool wifi_channel_needs_dfs(int channel)
{
    return (channel >= 52 && channel <= 64) || (channel >= 100 && channel <= 144);
}

bool wifid_channel_is_dfs(int channel, const char *htmode)
{
    return platform_wireless_get_dfs_support() &&
           (wifi_channel_needs_dfs(channel) || strstr(htmode, "160"));
}
