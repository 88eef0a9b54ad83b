// Channel numbers of the 2.4 and 5 GHz bands, and the names of interface types.
#include <iterator>

#include "netlink/nl80211.h"
#include "platform/zu/log.h"

constexpr int CHANNEL_STEP_MHZ = 5;
constexpr int CHANNEL_14_MHZ = 2484;

/// Frequencies from first to last count their channels from base.
struct channel_range {
    int first_mhz;
    int last_mhz;
    int base_mhz;
};

constexpr channel_range CHANNEL_RANGES[] = {
    {2407, CHANNEL_14_MHZ, 2407},
    {5180, 5320, 5000},
    {5500, 5865, 5000},
};

constexpr const char *TYPE_NAMES[] = {
    "unspecified", "IBSS",       "managed",    "AP",     "AP/VLAN",    "WDS",
    "monitor",     "mesh point", "P2P-client", "P2P-GO", "P2P-device", "outside context of a BSS",
    "NAN",
};

int sys_freq2chan(int frequency_mhz)
{
    if (frequency_mhz == CHANNEL_14_MHZ)
        return 14;
    for (const channel_range &range : CHANNEL_RANGES) {
        if (frequency_mhz < range.first_mhz || frequency_mhz > range.last_mhz)
            continue;
        int offset = frequency_mhz - range.base_mhz;
        if (offset % CHANNEL_STEP_MHZ == 0)
            return offset / CHANNEL_STEP_MHZ;
        // Here the line shows the offset, below the frequency: meant so.
        log_error("unhandled freq %d : returning 0", offset);
        return 0;
    }
    log_error("unhandled freq %d : returning 0", frequency_mhz);
    return 0;
}

int sys_chan2freq(int channel)
{
    if (channel == 14)
        return CHANNEL_14_MHZ;
    if (channel <= 0)
        return 0;
    for (const channel_range &range : CHANNEL_RANGES) {
        int64_t frequency = range.base_mhz + int64_t{CHANNEL_STEP_MHZ} * channel;
        if (frequency >= range.first_mhz && frequency <= range.last_mhz)
            return (int)frequency;
    }
    return 0;
}

const char *ng_nl80211_iface_type_name(uint32_t type)
{
    return type < std::size(TYPE_NAMES) ? TYPE_NAMES[type] : "unknown";
}
