// How the last test of each target over each interface ended, for the state dump.
#include <cstdio>

#include "platform/zu/clock.h"
#include "state/state.h"
#include "wired/inet_probe.h"
#include "wired/inet_probe_internal.h"

struct test_outcome {
    int64_t at_s; ///< 0: never tested
    CURLcode code;
    char interface[16];
};

/// By block and target, as the slots.
static test_outcome gOutcomes[INET_TEST_INTERFACES][INET_TEST_TARGETS];

void inet_test_note_outcome(const inet_test_slot *slot, CURLcode code)
{
    test_outcome &outcome = gOutcomes[slot->interface_idx][slot->url_idx];
    outcome.at_s = zu_monotonic_s();
    outcome.code = code;
    snprintf(outcome.interface, sizeof outcome.interface, "%s", slot->interface);
}

void inet_test_forget_outcomes()
{
    for (auto &block : gOutcomes)
        for (test_outcome &outcome : block)
            outcome = {};
}

static void add_outcome(blob_buf *buf, const test_outcome &outcome, const char *target)
{
    void *table = blobmsg_open_table(buf, nullptr);
    blobmsg_add_string(buf, "interface", outcome.interface);
    blobmsg_add_string(buf, "target", target);
    blobmsg_add_u8(buf, "passed", outcome.code == CURLE_OK);
    if (outcome.code != CURLE_OK)
        blobmsg_add_string(buf, "error", uloop_curl_error_text(outcome.code));
    blobmsg_add_u64(buf, "time", static_cast<uint64_t>(zu_date_of(outcome.at_s)));
    blobmsg_close_table(buf, table);
}

void inet_test_dump_outcomes(blob_buf *buf)
{
    if (!inet_test_settings().targets)
        return;
    for (const auto &block : gOutcomes) {
        int index = 0;
        tarn_host *target;
        list_for_each_entry(target, inet_test_settings().targets, list)
        {
            if (index == INET_TEST_TARGETS)
                break;
            if (const test_outcome &outcome = block[index++]; outcome.at_s != 0)
                add_outcome(buf, outcome, target->url);
        }
    }
}
