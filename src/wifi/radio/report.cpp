// What the check-in and the health check ask of scans and surveys.
#include <algorithm>

#include "platform/zu/clock.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"

wifi_scan_status wifi_scan_status_now()
{
    wifi_scan_status now{gScan_state.scan_job_in_progress, gScan_state.checkin_after_scan, {}};
    const scanning_result *entry;
    list_for_each_entry(entry, &gScanning_results, link)
        now.ifaces.push_back({entry->ifname, entry->timer.pending,
                              entry->data_generated && entry->results.head, entry->results.head});
    return now;
}

/// One survey may go unanswered; then what the channel was like says nothing of what it is like.
constexpr int SAMPLE_AGE_MAX_S = 2 * SURVEY_PERIOD_MS / 1000;

/// A sample has one before it unless it is the first since the interface's start, when counters
/// begin anew.
static bool follows(const survey_sample &now, const survey_sample &before)
{
    return before.active != 0 && now.active > before.active && now.busy >= before.busy &&
           now.rx >= before.rx && now.tx >= before.tx;
}

std::optional<wifi_channel_use> wifi_survey_channel_use(int radio)
{
    const survey_entry *entry;
    list_for_each_entry(entry, &gSurvey_entries, link)
    {
        const survey_sample &now = entry->latest, &before = entry->previous;
        if (entry->radio_idx != radio)
            continue;
        if (!follows(now, before) || zu_monotonic_s() - entry->sampled_s > SAMPLE_AGE_MAX_S)
            return std::nullopt;
        const auto share = [active = now.active - before.active](uint64_t part) {
            return std::min(1.0, static_cast<double>(part) / static_cast<double>(active));
        };
        return wifi_channel_use{share(now.busy - before.busy), share(now.rx - before.rx),
                                share(now.tx - before.tx)};
    }
    return std::nullopt;
}

bool wifi_u80211d_is_missing()
{
    return gScan_state.u80211d_obj_id == 0 &&
           (!list_empty(&gScanning_results) || !list_empty(&gSurvey_entries));
}
