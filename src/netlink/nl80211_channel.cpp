// Channel numbers of the 2.4 and 5 GHz bands, and the names of interface types.
#include <iterator>

#include "netlink/nl80211.h"
#include "platform/zu/log.h"

constexpr int CHANNEL_STEP_MHZ = 5;
constexpr int CHANNEL_14_MHZ = 2484;
constexpr int MAX_CHANNEL = 173;

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

static const channel_range *range_of(int frequency_mhz)
{
    for (const channel_range &range : CHANNEL_RANGES)
        if (frequency_mhz >= range.first_mhz && frequency_mhz <= range.last_mhz)
            return &range;
    return nullptr;
}

int sys_freq2chan(int frequency_mhz)
{
    if (frequency_mhz == CHANNEL_14_MHZ)
        return 14;
    const channel_range *range = range_of(frequency_mhz);
    // Inside a range the line shows the offset from its base, which tells why there is no channel:
    // it is no multiple of the step.
    const int offset = range ? frequency_mhz - range->base_mhz : frequency_mhz;
    if (range && offset % CHANNEL_STEP_MHZ == 0)
        return offset / CHANNEL_STEP_MHZ;
    log_error("unhandled freq %d : returning 0", offset);
    return 0;
}

int sys_chan2freq(int channel)
{
    if (channel < 1 || channel > MAX_CHANNEL)
        return 0;
    if (channel == 14)
        return CHANNEL_14_MHZ;
    const int frequency = (channel < 14 ? 2407 : 5000) + channel * CHANNEL_STEP_MHZ;
    return range_of(frequency) ? frequency : 0;
}

const char *ng_nl80211_iface_type_name(uint32_t type)
{
    return type < std::size(TYPE_NAMES) ? TYPE_NAMES[type] : "unknown";
}
