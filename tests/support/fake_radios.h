// Radios that no kernel has: what nl80211 tells, for one program. To be included by one source of
// it; it takes the place of the whole query file of the kernel access layer.
#pragma once

#include <cerrno>
#include <map>

#include "netlink/nl80211.h"

/// What the kernel says; null: nl80211 is not there.
struct fake_radios {
    std::vector<ng_nl80211_iface> ifaces;
    std::map<uint32_t, std::vector<ng_nl80211_station>> stations; ///< by interface
    std::vector<ng_nl80211_radio> radios;
};
inline const fake_radios *gFake_radios;

inline zu_mac fake_mac(uint32_t number)
{
    return {0x02,
            0x5e,
            0x10,
            static_cast<uint8_t>(number >> 16),
            static_cast<uint8_t>(number >> 8),
            static_cast<uint8_t>(number)};
}

/// A radio on 2.4 and one on 5 GHz, with three access points each and a mesh, and one that scans;
/// `stations` of them have joined, spread evenly.
inline fake_radios fake_loaded_node(unsigned stations)
{
    fake_radios node;
    uint32_t index = 100;
    const auto add = [&](const std::string &name, uint32_t mhz, uint32_t width) {
        node.ifaces.push_back({name, ++index, 0, 0, fake_mac(index), mhz, width, mhz, 1700});
        return index;
    };
    const auto heard = [](uint32_t number) {
        return ng_nl80211_station{
            fake_mac(number << 8), static_cast<int8_t>(-45 - static_cast<int>(number % 40)),
            6000 + number * 500,   12000 + number * 500,
            number * 104729ULL,    number * 1299709ULL};
    };
    for (uint32_t ap = 0; ap < 6; ap++) {
        const bool low = ap < 3;
        const uint32_t ifindex =
            add("ap" + std::to_string(low ? 0 : 1) + "_" + std::to_string(ap % 3 + 1),
                low ? 2437 : 5180, low ? 20 : 80);
        for (uint32_t station = ap; station < stations; station += 6)
            node.stations[ifindex].push_back(heard(station + 1));
    }
    node.stations[add("mesh1", 5180, 80)] = {heard(1000), heard(1001)};
    add("scan", 0, 0);
    node.radios.push_back({1, "phy1", {}});
    for (const uint32_t mhz : {5260U, 5280U, 5500U})
        node.radios[0].channels.push_back(
            {mhz, false, true, true,
             mhz == 5500 ? NG_NL80211_DFS_UNAVAILABLE : NG_NL80211_DFS_USABLE, 0, 2000});
    return node;
}

int ng_nl80211_iface_list(std::vector<ng_nl80211_iface> *out)
{
    if (!gFake_radios)
        return -ENOENT;
    *out = gFake_radios->ifaces;
    return 0;
}

int ng_nl80211_station_list(uint32_t ifindex, std::vector<ng_nl80211_station> *out)
{
    if (!gFake_radios)
        return -ENOENT;
    const auto found = gFake_radios->stations.find(ifindex);
    *out =
        found == gFake_radios->stations.end() ? std::vector<ng_nl80211_station>() : found->second;
    return 0;
}

int ng_nl80211_survey_list(uint32_t, std::vector<ng_nl80211_survey> *)
{
    return -ENOENT;
}

int ng_nl80211_radio_list(std::vector<ng_nl80211_radio> *out)
{
    if (!gFake_radios)
        return -ENOENT;
    *out = gFake_radios->radios;
    return 0;
}
