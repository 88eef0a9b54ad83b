// What the kernel knows of the radios: interfaces, stations, surveys, channels, and the events of a
// multicast group.
//
// Every query opens a socket of its own, so a half-read answer never reaches the next one. Queries
// return 0 or a negative errno (-ENODEV: no such interface, or it vanished meanwhile) and leave
// `out` untouched on failure; failures are logged here.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/zu/mac.h"

struct nl_sock;
struct nl_cb;

struct ng_nl80211_iface {
    std::string name;
    uint32_t ifindex;
    uint32_t wiphy;
    uint32_t type; ///< ng_nl80211_iface_type_name() tells what it is
    zu_mac mac;
    uint32_t frequency_mhz; ///< 0: on no channel
    uint32_t width_mhz;     ///< 0: on no channel
    uint32_t center_mhz;    ///< middle of the whole channel, 0: on no channel
    std::optional<int32_t> txpower_mbm;
};

struct ng_nl80211_station {
    zu_mac mac;
    std::optional<int8_t> signal_dbm;
    uint32_t rx_rate_kbps; ///< 0: not known
    uint32_t tx_rate_kbps; ///< 0: not known
    uint64_t rx_bytes;
    uint64_t tx_bytes;
};

/// Counters of one channel, in ms since the radio came up.
struct ng_nl80211_survey {
    uint32_t frequency_mhz;
    bool in_use;
    std::optional<int8_t> noise_dbm;
    uint64_t active_ms;
    uint64_t busy_ms;
    uint64_t rx_ms;
    uint64_t tx_ms;
};

/// The kernel's numbers.
enum ng_nl80211_dfs_state : uint32_t {
    NG_NL80211_DFS_USABLE = 0,      ///< needs a channel availability check before use
    NG_NL80211_DFS_UNAVAILABLE = 1, ///< radar was seen, closed for the non-occupancy period
    NG_NL80211_DFS_AVAILABLE = 2,   ///< checked and free
};

struct ng_nl80211_channel {
    uint32_t frequency_mhz;
    bool disabled;
    bool no_ir; ///< must not transmit first
    bool radar; ///< DFS channel: then dfs_state is set
    std::optional<uint32_t> dfs_state;
    uint32_t dfs_state_ms; ///< how long it has been in that state
    uint32_t max_power_mbm;
};

struct ng_nl80211_radio {
    uint32_t wiphy;
    std::string name;
    std::vector<ng_nl80211_channel> channels; ///< all bands, in the kernel's order
};

[[nodiscard]] int ng_nl80211_iface_list(std::vector<ng_nl80211_iface> *out);
[[nodiscard]] int ng_nl80211_station_list(uint32_t ifindex, std::vector<ng_nl80211_station> *out);
[[nodiscard]] int ng_nl80211_survey_list(uint32_t ifindex, std::vector<ng_nl80211_survey> *out);
[[nodiscard]] int ng_nl80211_radio_list(std::vector<ng_nl80211_radio> *out);

/// "AP", "managed", "mesh point", ...; "unknown" for a number that has no name here.
const char *ng_nl80211_iface_type_name(uint32_t type);

/// Channel number of a frequency in MHz, 0 (logged) when it has none; 2.4 and 5 GHz only.
int sys_freq2chan(int frequency_mhz);
/// The inverse: MHz of a channel number of the 2.4 or 5 GHz band, 0 when there is no such channel.
int sys_chan2freq(int channel);

/// Commands of the group "mlme" that matter here, and radar events: the kernel's numbers.
enum ng_nl80211_command : uint8_t {
    NG_NL80211_CH_SWITCH_NOTIFY = 88,
    NG_NL80211_RADAR_DETECT = 94,
    NG_NL80211_CH_SWITCH_STARTED_NOTIFY = 110,
};
enum ng_nl80211_radar_event : uint32_t {
    NG_NL80211_RADAR_DETECTED = 0,
    NG_NL80211_RADAR_CAC_FINISHED = 1,
    NG_NL80211_RADAR_CAC_ABORTED = 2,
    NG_NL80211_RADAR_NOP_FINISHED = 3,
    NG_NL80211_RADAR_PRE_CAC_EXPIRED = 4,
};

/// One multicast event. Commands nobody here knows are delivered too.
struct ng_nl80211_event {
    uint8_t command;
    bool well_formed; ///< false: an attribute did not hold what it must; nothing below is set
    std::optional<uint32_t> wiphy;
    std::optional<uint32_t> ifindex;
    std::optional<uint32_t> frequency_mhz;
    std::optional<uint32_t> radar_event;
    uint32_t width_mhz;                      ///< 0: not in the event
    uint32_t center_mhz;                     ///< 0: not in the event
    std::optional<uint32_t> ch_switch_count; ///< beacons until the switch
    bool ch_switch_block_tx;                 ///< quiet until the switch, as radar demands
};
using ng_nl80211_event_handler = void (*)(const ng_nl80211_event *event, void *arg);

/// A listening socket. It must stay where it is while it listens; all zero when it does not.
struct ng_nl80211_listener {
    nl_sock *socket;
    nl_cb *callbacks;
    ng_nl80211_event_handler handler;
    void *arg;
    uint32_t received; ///< messages since the listener was opened
};

/// Joins the multicast group `group` ("mlme") of nl80211; from then on ng_nl80211_receive_events()
/// calls `handler` for each event. Returns 0 or a negative error for ng_nl80211_strerror(); then
/// the listener is as after ng_nl80211_listen_close().
[[nodiscard]] int ng_nl80211_listen_event(ng_nl80211_listener *listener, const char *group,
                                          ng_nl80211_event_handler handler, void *arg);
/// The descriptor to watch for reading, -1 when not listening.
[[nodiscard]] int ng_nl80211_listen_fd(const ng_nl80211_listener *listener);
/// Delivers what is pending and never blocks. 0, or a negative error, among them that the kernel
/// dropped events because nobody read them: close and listen anew, and look at the state afresh.
[[nodiscard]] int ng_nl80211_receive_events(ng_nl80211_listener *listener);
/// False when events do not come any more: the listener is closed, or the kernel's wireless module
/// was unloaded, which ends every membership without a word.
[[nodiscard]] bool ng_nl80211_listen_is_member(const ng_nl80211_listener *listener);
/// Leaves the group and frees the socket, if any. Not to be called from the handler.
void ng_nl80211_listen_close(ng_nl80211_listener *listener);
/// Text for a negative result of the two above.
const char *ng_nl80211_strerror(int error);
