// The levels of the wireless settings document; how the rows are read is settings_rows.h's.
#pragma once

#include "platform/fw_core/settings_rows.h"

extern const settings_level SETTINGS_TOP;
extern const settings_level SETTINGS_MESH;
extern const settings_level SETTINGS_BATMAN;
extern const settings_level SETTINGS_REGULATORY;
extern const settings_level SETTINGS_DFS;
extern const settings_level SETTINGS_RADIO;
extern const settings_level SETTINGS_SSID;
extern const settings_level SETTINGS_BAND;
extern const settings_level SETTINGS_DHCP;
extern const settings_level SETTINGS_ORPHAN_CONNECT;
extern const settings_level SETTINGS_NEIGHBOR;

/// Most entries of a neighbour list that are kept.
constexpr uint32_t SETTINGS_NEIGHBORS_MAX = 512;
