// Jobs: long operations started by the event "qnet.jobs", answered by "qnet.job_status".
#pragma once

#include <libubus.h>

struct generic_job;

/// What a package offers as a job; the record lives in the package's own table.
struct generic_job {
    const char *name;
    /// Starts the work. 0: running, a report will follow. Otherwise the job failed and is over.
    int (*start)(generic_job *job, blob_attr *params);
    int timeout_ms; ///< the report "timeout" is sent when this much time has passed
    const blobmsg_policy *params_policy; ///< null: no parameters are looked at
    int params_count;
    unsigned params_required; ///< bit i set: parameter i must be there

    // Private: the running instance.
    bool running;
    char *id;
    blob_attr *params;
    uloop_timeout timer;
};

/// The daemon's job table, set by the connect handler.
struct generic_jobs {
    generic_job *jobs;
    int count;
};
extern generic_jobs *gPackage_jobs_events;
/// Event handler for "qnet.jobs"; register it with that pattern.
extern ubus_event_handler gUbus_jobs_event_handler;

/// Arms the job's time-out.
void generic_job_start_timer(generic_job *job);
/// Ends the job with `status` ("done", "failed", "busy", "timeout"): cancels its timer, sends the
/// report, frees its data. Nothing when it is not running.
void generic_job_report_handler(generic_job *job, const char *status, const char *message);
void generic_job_free_data_handler(generic_job *job);
/// Sends one "qnet.job_status" event.
void __generic_job_send_report(const char *name, const char *id, const char *status,
                               const char *message, blob_attr *params);
