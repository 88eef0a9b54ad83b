// The job framework: finds the job of an event, keeps its one running instance, reports its end.
#include "platform/fw_core/jobs.h"

#include <cstdlib>
#include <cstring>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/event.h"
#include "platform/zu/log.h"

const package_job_event *gPackage_jobs_events;

enum { JOB_NAME, JOB_ID, JOB_PARAMS, JOB_MEMBERS };

constexpr blobmsg_policy JOB_EVENT_POLICY[JOB_MEMBERS] = {
    {"job", BLOBMSG_TYPE_STRING}, {"id", BLOBMSG_TYPE_STRING}, {"params", BLOBMSG_TYPE_UNSPEC}};

constexpr const char *PARAMS_NOT_VALID = "the params are not valid";

static const package_job_event *job_event_find(const char *name)
{
    for (const package_job_event *row = gPackage_jobs_events; row && row->name; row++)
        if (strcmp(row->name, name) == 0)
            return row;
    return nullptr;
}

/// Why an event for a known job cannot be obeyed or answered, or null.
static const char *job_event_fault(blob_attr *const *members)
{
    if (!members[JOB_ID])
        return "it has no id";
    if (strlen(blobmsg_get_string(members[JOB_ID])) > JOB_ID_MAX)
        return "its id is too long";
    return nullptr;
}

static void jobs_event_cb(ubus_context *, ubus_event_handler *, const char *, blob_attr *msg)
{
    if (!zu_blobmsg_valid(msg)) {
        log_warning("Ignoring a job request that is malformed or nested too deeply");
        return;
    }
    blob_attr *members[JOB_MEMBERS] = {};
    (void)zu_blobmsg_parse(JOB_EVENT_POLICY, members, msg);
    const package_job_event *row =
        members[JOB_NAME] ? job_event_find(blobmsg_get_string(members[JOB_NAME])) : nullptr;
    if (!row)
        return;
    if (const char *fault = job_event_fault(members)) {
        log_warning("Ignoring a request for job %s: %s", row->name, fault);
        return;
    }
    const char *id = blobmsg_get_string(members[JOB_ID]);
    if (members[JOB_PARAMS] && blobmsg_type(members[JOB_PARAMS]) != BLOBMSG_TYPE_TABLE)
        (void)__generic_job_send_report(nullptr, row->name, id, "failed", PARAMS_NOT_VALID);
    else
        row->handler(row->job, id, members[JOB_PARAMS]);
}

static void job_timeout_cb(uloop_timeout *timer)
{
    generic_job *job = container_of(timer, generic_job, timer);
    log_warning("Job %s took too long", job->name);
    generic_job_report_handler(job, "timeout", "the job did not end in time");
}

/// Frees the run's data and makes the job ready for the next.
static void job_end(generic_job *job)
{
    uloop_timeout_cancel(&job->timer);
    job->running = false;
    if (job->free_data)
        job->free_data(job);
    generic_job_free_data_handler(job);
}

ubus_event_handler gUbus_jobs_event_handler = {.obj = {}, .cb = jobs_event_cb};

void generic_jobs_event_handler(generic_job *job, const char *id, blob_attr *params)
{
    if (job->running) {
        (void)__generic_job_send_report(nullptr, job->name, id, "busy", "the job is running");
        return;
    }
    job->id = strdup(id);
    if (!job->id || (job->parse_params && job->parse_params(job, params) != 0)) {
        job_end(job);
        (void)__generic_job_send_report(nullptr, job->name, id, "failed",
                                        "the params are not valid");
        return;
    }
    log_info("Starting job %s", job->name);
    job->running = true;
    if (job->start(job) != 0)
        generic_job_report_handler(job, "failed", "the job could not be started");
}

void generic_job_start_timer(generic_job *job, int timeout_ms)
{
    job->timer.cb = job_timeout_cb;
    uloop_timeout_set(&job->timer, timeout_ms);
}

void generic_job_report_handler(generic_job *job, const char *status, const char *message)
{
    if (!job->running)
        return;
    (void)__generic_job_send_report(job, job->name, job->id, status, message);
    job_end(job);
}

void generic_job_free_data_handler(generic_job *job)
{
    free(job->id);
    job->id = nullptr;
}

/// The table "params": the job's own, or an empty one.
static int report_add_params(generic_job *job, blob_buf *report)
{
    if (job && job->report_params)
        return job->report_params(job, report);
    void *table = blobmsg_open_table(report, "params");
    if (!table)
        return -1;
    blobmsg_close_table(report, table);
    return 0;
}

int __generic_job_send_report(generic_job *job, const char *name, const char *id,
                              const char *status, const char *message)
{
    blob_buffer report;
    if (blob_buf_init(&report, 0) != 0 || blobmsg_add_string(&report, "job", name) != 0 ||
        blobmsg_add_string(&report, "id", id) != 0 ||
        blobmsg_add_string(&report, "status", status) != 0 ||
        blobmsg_add_string(&report, "message", message) != 0 ||
        report_add_params(job, &report) != 0) {
        log_warning("Failed to build the status report of job %s", name);
        return -1;
    }
    log_info("Job %s: %s", name, status);
    return _zu_send_event("qnet.job_status", report.head) == UBUS_STATUS_OK ? 0 : -1;
}
