// The lonely scan: while the node has no upstream, an external service looks for any network to
// join; it is started again every minute, for it may have ended.
#include <cstring>

#include "mesh/mesh.h"
#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "platform/zu/shell.h"
#include "state/owned.h"

constexpr int LONELY_FIRST_TRIGGER_MS = 500000;
constexpr int LONELY_PERIOD_MS = 60000;
constexpr char LONELY_PID_FILE[] = "/var/run/lonely.pid";

static void arm(int delay_ms)
{
    uloop_timeout *timer = &gTarn_net_state.mesh.lonely_timer;
    timer->cb = lonely_periodic_trigger_cb;
    uloop_timeout_set(timer, delay_ms);
}

void lonely_periodic_trigger_cb(uloop_timeout *)
{
    gTarn_net_state.mesh.lonely_trigger_count++;
    const shell_result started = shell_run("/etc/init.d/lonely start");
    if (!started.ran)
        log_warning("Unable to start lonely scan: %d (%s)", started.error, strerror(started.error));
    else if (started.exit_status != 0)
        log_warning("Lonely scan exited with rc %d", started.exit_status);
    arm(LONELY_PERIOD_MS);
}

void lonely_start()
{
    arm(LONELY_FIRST_TRIGGER_MS);
}

bool lonely_stop()
{
    uloop_timeout_cancel(&gTarn_net_state.mesh.lonely_timer);
    const shell_result stopped = shell_run("/etc/init.d/lonely stop");
    if (!stopped.ran)
        log_warning("Unable to cancel lonely scan: %d (%s)", stopped.error,
                    strerror(stopped.error));
    else if (stopped.exit_status != 0)
        log_warning("Lonely scan cancel exited with rc %d", stopped.exit_status);
    return stopped.ran && stopped.exit_status == 0;
}

bool lonely_is_running()
{
    int pid;
    return file_read_int(LONELY_PID_FILE, &pid) == 0 && process_is_alive(pid);
}
