// tarn_net: finds and keeps the access point's way to the internet, and puts the cloud's wireless
// settings into force.
//
// Two paths lead through the program.
//
//   Settings
//     bus method parse_config (platform/fw_core) ─► wifi/push: document ─► settings record ─► UCI
//     batch and save actions (platform/zu/ng_uci) ─► commit, reload_config
//
//   Connectivity
//     timer ─► internet test (wired/inet_probe) ─► upstream state (wired/upstream) ─►
//     wired/upstream_switch: routing rules (netlink/), DHCP, firewall (wired/forwarding), captive
//     portal (wifi/write/portal), gateway mode, LED flags, bus events
//
// What feeds them: interfaces followed through netifd (wired/netifd; wired/bridges and
// mesh/mesh own them) and objects that come and go on the bus (core/bus, core/bus_objects).
// What all of them know of the node stands in one record (state/).
#include <libubus.h>
#include <sys/stat.h>

#include "core/bus.h"
#include "core/instance.h"
#include "mesh/mesh.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "platform/zu/shell.h"
#include "platform/zu/system_log.h"
#include "wifi/wifi.h"
#include "wired/bridges.h"
#include "wired/forwarding.h"
#include "wired/inet_probe.h"

static uci_context *gUci_context;

int main(int argc, char **argv)
{
    if (const int answered = instance_answer_arguments(argc, argv); answered >= 0)
        return answered;
    if (!instance_become_only())
        return 1;
    umask(022); // whoever started it: what it and its commands write is for no other user to change
    debug_init("/tmp/debug_tarn_net.log");
    system_log_open("/dev/log");
    if (ng_uci_recover())
        shell_run_ignored(RELOAD_SERVICES); // others may have read half a change
    debug_load_level("tarn_net.debug.debug_level");
    platform_detect();
    uloop_init();
    bus_start();
    inet_test_reset();
    (void)wifi_reload_config(true);
    firewall_reset_forwarding_rules();
    if (!firewall_commit_forwarding_rules())
        firewall_revert_forwarding_rules();
    init_bridge_info();
    init_mesh_info();
    inet_test_init();
    gUci_context = uci_alloc_context();
    if (!gUci_context) {
        log_error("Failed to create uci context for tarn_net");
        return -1;
    }
    uloop_run();
    uloop_done();
    return 0;
}
