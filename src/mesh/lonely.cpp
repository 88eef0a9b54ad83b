// The lonely scan: while the node has no upstream, an external service looks for any network to
// join; it is started again every minute, for it may have ended.

#include "core/state.h"
#include "mesh/mesh.h"
#include "platform/zu/log.h"
#include "platform/zu/shell.h"

#include <cstring>

namespace {

constexpr int LONELY_PERIOD_MS = 60000;

}

void lonely_periodic_trigger_cb(uloop_timeout *)
{
    gTarn_net_state.mesh.lonely_trigger_count++;
    const shell_result started = shell_run("/etc/init.d/lonely start");
    if (!started.ran)
        log_warning("Unable to start lonely scan: %d (%s)", started.error, strerror(started.error));
    else if (started.exit_status != 0)
        log_warning("Lonely scan exited with rc %d", started.exit_status);
    gTarn_net_state.mesh.lonely_timer.cb = lonely_periodic_trigger_cb;
    uloop_timeout_set(&gTarn_net_state.mesh.lonely_timer, LONELY_PERIOD_MS);
}
