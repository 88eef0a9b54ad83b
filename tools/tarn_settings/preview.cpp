// The daemon's own callbacks, called in a private root as the bus would: reload, push, and, when
// the push waits, its confirmation and the end of the wait. In between the configuration is read.
#include "preview.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

#include "document_file.h"
#include "platform/zu/ng_uci.h"
#include "private_root.h"
#include "state/owned.h"
#include "wifi/wifi.h"
#include "wired/inet_probe.h"
#include "wired/upstream.h"

static int fail(const std::string &reason)
{
    fprintf(stderr, "tarn-settings: %s\n", on_one_line(reason).c_str());
    return PREVIEW_FAILED;
}

static bool has_portal()
{
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++)
        if (ng_uci_exists("udsplash.ssid%d.accessif", ssid))
            return true;
    return false;
}

/// The push depends on the upstream. What the daemon last wrote for one tells it: only a gateway
/// serves addresses to the mesh, and the portal stands elsewhere when that is.
static void suppose_configured_upstream()
{
    tarn_net_state &state = gTarn_net_state;
    int ignore = 1;
    (void)ng_uci_get_int(&ignore, "dhcp.mesh_gw.ignore");
    if (ignore != 0) {
        state.inet_test.upstream_state =
            has_portal() ? TARN_NET_UPSTREAM_NONE : TARN_NET_UPSTREAM_MESH_STATE;
        return;
    }
    state.inet_test.upstream_state = TARN_NET_UPSTREAM_WAN_STATE;
    for (int port : {1, 0}) {
        int enabled = 0;
        (void)ng_uci_get_int(&enabled, "firewall.meshwan_wired%d.enabled", port);
        if (enabled == 0)
            continue;
        snprintf(state.upstream.wired_uplink_bridge, sizeof state.upstream.wired_uplink_bridge,
                 "br-wired%d", port);
        snprintf(state.inet_test.uplink_iface, sizeof state.inet_test.uplink_iface, "br-wired%d",
                 port);
    }
}

static void start_daemon()
{
    uloop_init();
    inet_test_reset();
    inet_test_init(); // its timer never comes to run
    suppose_configured_upstream();
    (void)wifi_reload_config(true);
}

static void end_of_callback()
{
    (void)ng_uci_renew_change_context();
}

/// The push is confirmed and its wait is over.
static void end_wait()
{
    blob_buffer event;
    blob_buf_init(&event, 0);
    blobmsg_add_u8(&event, "success", 1);
    wifid_parse_config_event_handler(nullptr, nullptr, "parse_config_status", event.head);
    end_of_callback();
    (void)ubus_wifi_end_delayed_wireless(nullptr, nullptr, nullptr, nullptr, nullptr);
    end_of_callback();
}

/// False with the reason in `error` when the configuration cannot be read.
static bool try_push(const document_kind &kind, blob_buf *message, preview_report &report,
                     std::string &error)
{
    config_record before, pushed, waited;
    if (!read_config(before, error))
        return false;
    start_daemon();
    report.upstream = upstream_state_name(gTarn_net_state.inet_test.upstream_state);
    if (blob_attr *params = params_of(message))
        report.at_once_reason = kind.at_once_reason(params);
    report.judged = judge(kind, message, [&](blob_attr *) { return kind.push(message->head); });
    end_of_callback();
    if (report.judged.result == VERDICT_REFUSED)
        return true;
    if (!read_config(pushed, error))
        return false;
    report.at_once = effect_of(before, pushed, nullptr);
    report.delayed = !report.at_once_reason;
    if (!report.delayed)
        return true;
    end_wait();
    if (!read_config(waited, error))
        return false;
    report.after_wait = effect_of(pushed, waited, "dnsmasq");
    return true;
}

static int preview_in_private_root(const preview_request &request, blob_buf *message)
{
    preview_report report{};
    std::string error;
    if (!try_push(*request.kind, message, report, error))
        return fail(request.config + "/" + error);
    signal(SIGPIPE, SIG_DFL); // which the loop ignores: a reader that has seen enough is no fault
    print_preview(request, report);
    return fflush(stdout) == 0 ? report.judged.result : fail("the preview could not be written");
}

int preview_file(const preview_request &request)
{
    blob_buffer message;
    private_files files;
    std::string error;
    if (!read_message(request.file, &message, error)) {
        preview_report report{};
        report.judged = {VERDICT_REFUSED, {"error: " + on_one_line(error)}};
        print_preview(request, report);
        return VERDICT_REFUSED;
    }
    if (!read_packages(request.config, files, error) || !enter_private_root(files, error))
        return fail(error);
    const int status = preview_in_private_root(request, &message);
    _exit(status); // what else runs at the end of a program expects the usual file system
}
