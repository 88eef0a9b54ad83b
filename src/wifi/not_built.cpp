// What of the wireless package this build does not have. Methods say so to their caller
// (UBUS_STATUS_NOT_SUPPORTED); what is only told to the package is dropped. A function leaves this
// file when its subsystem comes.
#include "wifi/wifi.h"

// Check-in and health

int gen_checkin_wifi_section(ubus_context *, blob_attr *, blob_buf *)
{
    return UBUS_STATUS_NOT_SUPPORTED;
}

int wifi_health_check(ubus_context *, blob_attr *, blob_buf *)
{
    return UBUS_STATUS_NOT_SUPPORTED;
}

// Scans, surveys and the job "ap_scan"

int ubus_wifi_ap_scan_now(ubus_context *, ubus_object *, ubus_request_data *, const char *,
                          blob_attr *)
{
    return UBUS_STATUS_NOT_SUPPORTED;
}

int ubus_wifi_ap_survey_now(ubus_context *, ubus_object *, ubus_request_data *, const char *,
                            blob_attr *)
{
    return UBUS_STATUS_NOT_SUPPORTED;
}

/// A job that cannot be started reports "failed".
static int refuse_job(generic_job *)
{
    return -1;
}

const package_job_event *wifi_jobs()
{
    static generic_job scan = {.name = "ap_scan",
                               .parse_params = nullptr,
                               .free_data = generic_job_free_data_handler,
                               .report_params = nullptr,
                               .start = refuse_job,
                               .running = false,
                               .id = nullptr,
                               .timer = {}};
    static const package_job_event jobs[] = {
        {"ap_scan", generic_jobs_event_handler, &scan},
        {nullptr, nullptr, nullptr},
    };
    return jobs;
}

void u80211d_register_subscriber(ubus_context *, uint32_t) {}
void u80211d_unsubscribe(ubus_context *, uint32_t) {}
