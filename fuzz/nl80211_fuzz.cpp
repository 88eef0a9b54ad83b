// libraries: tarn_netlink
// Messages of nl80211, each given to every reader. Several in a row, so that a radio is described
// in pieces.
#include <algorithm>
#include <cstring>
#include <vector>

#include "netlink/nl80211_internal.h"

/// The message at the start of `data`, its length set right; empty where not even a header is left.
static std::vector<uint8_t> message_take(const uint8_t **data, size_t *size)
{
    nlmsghdr header;
    if (*size < sizeof header)
        return {};
    memcpy(&header, *data, sizeof header);
    const size_t length = std::clamp<size_t>(header.nlmsg_len, sizeof header, *size);
    std::vector<uint8_t> message(*data, *data + length);
    header.nlmsg_len = (uint32_t)length;
    memcpy(message.data(), &header, sizeof header);
    const size_t step = std::min<size_t>(NLMSG_ALIGN(length), *size);
    *data += step;
    *size -= step;
    return message;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<ng_nl80211_radio> radios;
    for (auto message = message_take(&data, &size); !message.empty();
         message = message_take(&data, &size)) {
        auto *header = reinterpret_cast<nlmsghdr *>(message.data());
        ng_nl80211_iface iface;
        ng_nl80211_station station;
        ng_nl80211_survey survey;
        ng_nl80211_event event;
        (void)nl80211_iface_read(header, &iface);
        (void)nl80211_station_read(header, &station);
        (void)nl80211_survey_read(header, &survey);
        (void)nl80211_event_read(header, &event);
        (void)nl80211_radio_merge(header, &radios);
    }
    return 0;
}
