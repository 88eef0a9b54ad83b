// nl80211 below the calls of nl80211.h: messages as records (pure), and one dump over a socket of
// its own.
#pragma once

#include <cstdint>
#include <linux/netlink.h>
#include <vector>

#include "netlink/nl80211.h"

struct nl_msg;

// Each reads one message of a dump or of a group; header->nlmsg_len bytes are there. The readers
// return false, and have changed nothing, for what does not tell what they read (another command,
// an entry without its identity, an attribute too short for its type).

bool nl80211_iface_read(nlmsghdr *message, ng_nl80211_iface *out);
bool nl80211_station_read(nlmsghdr *message, ng_nl80211_station *out);
bool nl80211_survey_read(nlmsghdr *message, ng_nl80211_survey *out);
/// Adds what the message tells to the radio it tells of: the kernel splits a description over many
/// messages, a few channels each.
bool nl80211_radio_merge(nlmsghdr *message, std::vector<ng_nl80211_radio> *radios);
bool nl80211_event_read(nlmsghdr *message, ng_nl80211_event *out);

/// MHz of the kernel's channel width number, 0 for an unknown one.
uint32_t nl80211_width_mhz(uint32_t width);

struct nl80211_dump_request {
    uint8_t command;
    uint32_t ifindex = 0;     ///< 0: of everything
    bool split_wiphy = false; ///< radios in pieces; else the kernel leaves out what is too much
    bool (*reader)(nlmsghdr *message, void *arg);
    void *arg = nullptr;
};

/// Fills `msg` with the request.
[[nodiscard]] int nl80211_dump_build(nl_msg *msg, int family_id,
                                     const nl80211_dump_request &request);
/// Makes one dump and gives each message to the reader. 0 or a negative errno (logged); -EINTR
/// when the state changed while it was read, so that entries may be missing or double.
[[nodiscard]] int nl80211_dump(const nl80211_dump_request &request);
