// The surveys in the state dump.
#include "platform/zu/log.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"

static void report(int result, const char *member)
{
    if (result != 0)
        log_info("Unable to add '%s' to the survey state dump", member);
}

static void dump_samples(blob_buf *buf, const survey_entry *entry)
{
    void *table = blobmsg_open_table(buf, "survey_data");
    if (!table) {
        log_warning("Unable to open 'survey_data' table for survey state dump");
        return;
    }
    const struct {
        const char *name;
        uint64_t value;
    } rows[] = {
        {"latest_active", entry->latest.active},
        {"latest_busy", entry->latest.busy},
        {"latest_rx", entry->latest.rx},
        {"latest_tx", entry->latest.tx},
        {"previous_active", entry->previous.active},
        {"previous_busy", entry->previous.busy},
        {"previous_rx", entry->previous.rx},
        {"previous_tx", entry->previous.tx},
    };
    for (const auto &row : rows)
        report(blobmsg_add_u64(buf, row.name, row.value), row.name);
    blobmsg_close_table(buf, table);
}

static void dump_entry(blob_buf *buf, const survey_entry *entry)
{
    void *table = blobmsg_open_table(buf, nullptr);
    if (!table) {
        log_warning("Unable to open table for survey results on '%s' for state dump",
                    entry->ifname);
        return;
    }
    report(blobmsg_add_u8(buf, "survey_result_timeout_running", entry->timer.pending),
           "survey_result_timeout_running");
    report(blobmsg_add_string(buf, "ifname", entry->ifname), "ifname");
    report(blobmsg_add_u32(buf, "radio_idx", static_cast<uint32_t>(entry->radio_idx)), "radio_idx");
    report(blobmsg_add_u8(buf, "data_generated", entry->data_generated), "data_generated");
    report(blobmsg_add_u32(buf, "survey_retry_count",
                           static_cast<uint32_t>(entry->survey_retry_count)),
           "survey_retry_count");
    dump_samples(buf, entry);
    blobmsg_close_table(buf, table);
}

static void dump_entries(blob_buf *buf)
{
    void *array = blobmsg_open_array(buf, "survey_results");
    if (!array) {
        log_warning("Unable to open 'survey_results' array for survey state dump");
        return;
    }
    const survey_entry *entry;
    list_for_each_entry(entry, &gSurvey_entries, link)
    {
        dump_entry(buf, entry);
    }
    blobmsg_close_array(buf, array);
}

void wifi_dump_survey_state(blob_buf *buf)
{
    void *table = blobmsg_open_table(buf, "wifi_survey_state");
    if (!table) {
        log_warning("Unable to open 'wifi_survey_state' table for survey state dump");
        return;
    }
    report(blobmsg_add_u8(buf, "survey_period_timeout_running", gSurvey_period_timer.pending),
           "survey_period_timeout_running");
    dump_entries(buf);
    blobmsg_close_table(buf, table);
}
