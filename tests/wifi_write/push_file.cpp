// push_file [--apply] FILE...: pushes settings documents into the configuration of the sandbox it
// runs in, as the daemon does, and prints what came of it: every package, the staged batch file,
// the portal's host files. With --apply a delayed push is confirmed and its wait ended first.
#include <cstdio>
#include <cstring>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
}

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "support/temporary_directory.h"
#include "wifi/wifi.h"
#include "wired/inet_probe.h"

static int push(const char *path)
{
    blob_buffer message;
    blob_buf_init(&message, 0);
    if (!blobmsg_add_json_from_string(&message, read_file(path).c_str())) {
        fprintf(stderr, "%s: not JSON\n", path);
        return 1;
    }
    return wifi_parse_config(nullptr, message.head, nullptr);
}

static void apply()
{
    blob_buffer event;
    blob_buf_init(&event, 0);
    blobmsg_add_u8(&event, "success", 1);
    wifid_parse_config_event_handler(nullptr, nullptr, "parse_config_status", event.head);
    (void)ubus_wifi_end_delayed_wireless(nullptr, nullptr, nullptr, nullptr, nullptr);
}

int main(int argc, char **argv)
{
    (void)ng_uci_recover();
    platform_detect();
    uloop_init();
    inet_test_init();
    (void)wifi_reload_config(true);
    debug_init("/tmp/push_file.log"); // what a machine without radios says at start does not count
    const bool applies = argc > 1 && strcmp(argv[1], "--apply") == 0;
    int result = 0;
    for (int i = applies ? 2 : 1; i < argc; i++)
        result |= push(argv[i]);
    if (applies)
        apply();
    (void)ng_uci_renew_change_context();
    // Not said here: that this machine has no radios to hear of radar.
    const int shown = system("uci export; for file in /tmp/wifi-delayed-* /tmp/cp-hosts*; do "
                             "[ ! -f $file ] || { echo \"# ${file%-[0-9]*}\"; cat $file; }; done; "
                             "grep -E ' (ERROR|WARNING): ' /tmp/push_file.log | "
                             "grep -vE \"'mlme'|DFS: failed\" >&2");
    (void)shown; // grep's status
    uloop_done();
    return result;
}
