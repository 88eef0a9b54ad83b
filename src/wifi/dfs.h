// Channels on which radar has priority (dynamic frequency selection).
#pragma once

/// True for the 5 GHz channels that need radar detection: 52 to 64 and 100 to 144.
bool wifi_channel_needs_dfs(int channel);

/// True when a radio on this channel and HT mode may be made to leave it by radar: the platform has
/// DFS support, and either the channel needs it or the mode ("VHT160", ...) is 160 MHz wide, which
/// always covers such channels.
bool wifid_channel_is_dfs(int channel, const char *htmode);
