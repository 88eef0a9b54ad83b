// netlink-probe: what nl80211 tells of radios, and its events.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <poll.h>
#include <string>
#include <unistd.h>

#include "netlink/nl80211.h"
#include "probe.h"

/// "-" for a number that is missing.
static std::string shown(std::optional<int64_t> number)
{
    return number ? std::to_string(*number) : "-";
}

/// The exit status for the result of a query.
static int query_status(int result)
{
    if (result == 0)
        return 0;
    printf("%s\n", result == -ENODEV ? "gone" : strerror(-result));
    return 1;
}

static int run_ifaces(arguments)
{
    std::vector<ng_nl80211_iface> list;
    const int result = ng_nl80211_iface_list(&list);
    for (const ng_nl80211_iface &i : list)
        printf("iface %s index=%u phy=%u type=\"%s\" mac=%s frequency=%u width=%u center=%u "
               "txpower=%s\n",
               i.name.c_str(), i.ifindex, i.wiphy, ng_nl80211_iface_type_name(i.type),
               zu_mac_text(i.mac).c_str(), i.frequency_mhz, i.width_mhz, i.center_mhz,
               shown(i.txpower_mbm).c_str());
    return query_status(result);
}

/// An interface by its name, or by its number, which need not exist.
static uint32_t index_of(const char *text)
{
    const uint32_t index = if_nametoindex(text);
    return index ? index : number_of(text).value_or(0);
}

static int run_stations(arguments args)
{
    std::vector<ng_nl80211_station> list;
    const int result = ng_nl80211_station_list(index_of(args[0]), &list);
    for (const ng_nl80211_station &s : list)
        printf("station %s signal=%s rx_kbps=%u tx_kbps=%u rx_bytes=%llu tx_bytes=%llu\n",
               zu_mac_text(s.mac).c_str(), shown(s.signal_dbm).c_str(), s.rx_rate_kbps,
               s.tx_rate_kbps, (unsigned long long)s.rx_bytes, (unsigned long long)s.tx_bytes);
    return query_status(result);
}

static int run_survey(arguments args)
{
    std::vector<ng_nl80211_survey> list;
    const int result = ng_nl80211_survey_list(index_of(args[0]), &list);
    for (const ng_nl80211_survey &s : list)
        printf("survey %u in_use=%d noise=%s active=%llu busy=%llu rx=%llu tx=%llu\n",
               s.frequency_mhz, s.in_use, shown(s.noise_dbm).c_str(),
               (unsigned long long)s.active_ms, (unsigned long long)s.busy_ms,
               (unsigned long long)s.rx_ms, (unsigned long long)s.tx_ms);
    return query_status(result);
}

static const char *dfs_text(const std::optional<uint32_t> &state)
{
    constexpr const char *TEXTS[] = {"usable", "unavailable", "available"};
    if (!state)
        return "-";
    return *state < std::size(TEXTS) ? TEXTS[*state] : "unknown";
}

static int run_radios(arguments)
{
    std::vector<ng_nl80211_radio> list;
    const int result = ng_nl80211_radio_list(&list);
    for (const ng_nl80211_radio &radio : list) {
        printf("radio %s phy=%u channels=%zu\n", radio.name.c_str(), radio.wiphy,
               radio.channels.size());
        for (const ng_nl80211_channel &c : radio.channels)
            printf("channel %s %u disabled=%d no_ir=%d radar=%d dfs=%s dfs_ms=%u max_power=%u\n",
                   radio.name.c_str(), c.frequency_mhz, c.disabled, c.no_ir, c.radar,
                   dfs_text(c.dfs_state), c.dfs_state_ms, c.max_power_mbm);
    }
    return query_status(result);
}

static void event_print(const ng_nl80211_event *event, void *count)
{
    ++*(uint32_t *)count;
    printf("event %u well_formed=%d phy=%s index=%s radar=%s frequency=%s width=%u center=%u "
           "count=%s quiet=%d\n",
           event->command, event->well_formed, shown(event->wiphy).c_str(),
           shown(event->ifindex).c_str(), shown(event->radar_event).c_str(),
           shown(event->frequency_mhz).c_str(), event->width_mhz, event->center_mhz,
           shown(event->ch_switch_count).c_str(), event->ch_switch_block_tx);
    fflush(stdout);
}

static bool listen_start(ng_nl80211_listener *listener, uint32_t *count)
{
    const int result = ng_nl80211_listen_event(listener, "mlme", event_print, count);
    printf("%s %s\n", result < 0 ? "failed" : "listening",
           result < 0 ? ng_nl80211_strerror(result) : "");
    fflush(stdout);
    return result >= 0;
}

static int run_listen(arguments args)
{
    auto seconds = number_of(args[0], 1000000);
    auto held = args.size() > 1 ? number_of(args[1], 1000000) : 0;
    ng_nl80211_listener listener;
    uint32_t count = 0;
    if (!seconds || !held || !listen_start(&listener, &count))
        return 1;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(*seconds);
    sleep(*held);
    while (std::chrono::steady_clock::now() < end) {
        pollfd watched = {ng_nl80211_listen_fd(&listener), POLLIN, 0};
        if (poll(&watched, 1, 100) <= 0)
            continue;
        const int result = ng_nl80211_receive_events(&listener);
        if (result >= 0)
            continue;
        printf("resync after %u events: %s\n", count, ng_nl80211_strerror(result));
        ng_nl80211_listen_close(&listener);
        if (!listen_start(&listener, &count))
            return 1;
    }
    ng_nl80211_listen_close(&listener);
    printf("events %u\n", count);
    return 0;
}

static int run_channel(arguments args)
{
    auto frequency = number_of(args[0], INT32_MAX);
    const int channel = frequency ? sys_freq2chan((int)*frequency) : 0;
    printf("channel %d\n", channel);
    return channel ? 0 : 1;
}

static int run_frequency(arguments args)
{
    auto channel = number_of(args[0], INT32_MAX);
    const int frequency = channel ? sys_chan2freq((int)*channel) : 0;
    printf("frequency %d\n", frequency);
    return frequency ? 0 : 1;
}

constexpr probe_command COMMANDS[] = {
    {"ifaces", "", "wireless interfaces; power in mBm", run_ifaces},
    {"stations", "NAME|INDEX", "of an interface; bytes as the interface counts", run_stations},
    {"survey", "NAME|INDEX", "its radio's channels; times in ms", run_survey},
    {"radios", "", "radios and the state of their channels", run_radios},
    {"listen", "SECONDS [HOLD]", "print events; read none for the first HOLD seconds", run_listen},
    {"channel", "MHZ", "channel number of a frequency", run_channel},
    {"frequency", "CHANNEL", "frequency of a channel number", run_frequency},
};
const std::span<const probe_command> RADIO_COMMANDS = COMMANDS;
