// How a scan ends for those who asked for it: the job "ap_scan" is reported, the check-in
// requested.
#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/radio/radio.h"
#include "wifi/radio/radio_internal.h"

constexpr int JOB_TIMEOUT_MS = 45000;

static generic_job gScan_job;

static int scan_job_parse_params_handler(generic_job *, blob_attr *params)
{
    static constexpr blobmsg_policy POLICY[] = {{"checkin_after_scan", BLOBMSG_TYPE_BOOL}};
    blob_attr *checkin = nullptr;
    if (params && blobmsg_data_len(params) > 0 &&
        !zu_blobmsg_parse(POLICY, {&checkin, 1}, params)) {
        log_error("Unable to parse scan job params");
        return -1;
    }
    if (!checkin)
        log_info("Unable to parse scan job param 'checkin_after_scan', defaulting to false");
    gScan_state.checkin_after_scan = checkin && blobmsg_get_bool(checkin);
    return 0;
}

static int job_ap_scan_report_params_handler(generic_job *job, blob_buf *report)
{
    void *params = blobmsg_open_table(report, "params");
    if (params &&
        blobmsg_add_u8(report, "checkin_after_scan", gScan_state.checkin_after_scan) == 0) {
        blobmsg_close_table(report, params);
        return 0;
    }
    log_error("Failed to add parameter 'checkin_after_scan' param to %s job status report",
              job->name);
    return -1;
}

static int job_ap_scan_start_handler(generic_job *job)
{
    generic_job_start_timer(job, JOB_TIMEOUT_MS);
    gScan_state.scan_job_in_progress = true;
    return wifi_scan_now_handler(gScan_state.checkin_after_scan) == UBUS_STATUS_OK ? 0 : -1;
}

/// However the job ends, a scan that ends later is not its.
static void scan_job_free_data(generic_job *job)
{
    gScan_state.scan_job_in_progress = false;
    generic_job_free_data_handler(job);
}

void wifi_init_ap_scan_job()
{
    gScan_job.name = "ap_scan";
    gScan_job.parse_params = scan_job_parse_params_handler;
    gScan_job.free_data = scan_job_free_data;
    gScan_job.report_params = job_ap_scan_report_params_handler;
    gScan_job.start = job_ap_scan_start_handler;
}

const package_job_event *wifi_jobs()
{
    static const package_job_event JOBS[] = {
        {"ap_scan", generic_jobs_event_handler, &gScan_job},
        {nullptr, nullptr, nullptr},
    };
    return JOBS;
}

/// The check-in whose document holds the results.
static void wifi_scan_collect_results_done_cb()
{
    gScan_state.checkin_after_scan = false;
    cloud_checkin(gUbus_ctx, "normal", false);
}

void wifi_scan_check_complete()
{
    if (wifi_scan_in_flight())
        return;
    if (gScan_state.scan_job_in_progress)
        generic_job_report_handler(&gScan_job, "success", "ap_scan was successful");
    if (gScan_state.checkin_after_scan)
        wifi_scan_collect_results_done_cb();
}
