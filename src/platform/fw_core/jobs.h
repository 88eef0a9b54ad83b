// Jobs: long operations started by the event "qnet.jobs" {"job", "id", "params"} and answered by
// the event "qnet.job_status" {"job", "id", "status", "message", "params"}.
//
//           event: parse_params, start     report or time-out
//     idle ─────────────────────────► running ───────────────► idle
//       └─ either fails: "failed"         └─ another event: "busy"
//
// The framework keeps the running instance, its id and its timer; what the job does is the
// package's.
#pragma once

#include <libubus.h>

/// Longest job id in bytes; an event with a longer one, or without one, is ignored with a WARNING.
constexpr unsigned JOB_ID_MAX = 128;

/// A job a package offers, zero but for its name and its four handlers. A null handler is skipped,
/// `start` alone must be there. 0 means success for all of them.
struct generic_job {
    const char *name;
    /// Takes the event's "params" table (null when it had none). A failure reports "failed" and
    /// nothing is started.
    int (*parse_params)(generic_job *job, blob_attr *params);
    /// Frees what the run holds when it has ended: generic_job_free_data_handler, or a function
    /// that calls it.
    void (*free_data)(generic_job *job);
    /// Adds the table "params" to a report; without this handler reports carry an empty one.
    int (*report_params)(generic_job *job, blob_buf *report);
    /// Starts the work and arms its time-out with generic_job_start_timer(). A failure reports
    /// "failed". It may report its end itself before it returns.
    int (*start)(generic_job *job);

    // Private: the running instance.
    bool running;
    char *id;
    uloop_timeout timer;
};

/// One row of a daemon's job table; a row with a null name ends the table.
struct package_job_event {
    const char *name; ///< as it stands in the event
    void (*handler)(generic_job *job, const char *id, blob_attr *params);
    generic_job *job;
};
/// The daemon's job table, set by the connect handler; null: every job is unknown.
extern const package_job_event *gPackage_jobs_events;
/// Event handler for "qnet.jobs"; register it with that pattern. Unknown jobs are ignored: another
/// daemon may own them.
extern ubus_event_handler gUbus_jobs_event_handler;

/// The row handler of a job that is a generic_job: starts it, or reports why not.
void generic_jobs_event_handler(generic_job *job, const char *id, blob_attr *params);

/// Arms, or re-arms, the job's time-out: when it fires the job ends with the status "timeout".
void generic_job_start_timer(generic_job *job, int timeout_ms);
/// Ends the job with `status` ("success", "failed", "timeout"): cancels its timer, sends the
/// report, frees its data. The job can be started again. Nothing when it is not running.
void generic_job_report_handler(generic_job *job, const char *status, const char *message);
/// Frees the framework's own data of a run. For the free_data slot.
void generic_job_free_data_handler(generic_job *job);
/// Sends one "qnet.job_status" event; `job` adds its parameters, null an empty table. 0 or -1
/// (logged).
int __generic_job_send_report(generic_job *job, const char *name, const char *id,
                              const char *status, const char *message);
