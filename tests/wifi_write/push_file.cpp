// push_file FILE...: pushes settings documents into the configuration of the sandbox it runs in, as
// the daemon does, and prints what came of it: every package, the staged batch file, the portal's
// host files.
#include "support/temporary_directory.h"

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "wifi/wifi.h"

#include <cstdio>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
}

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

int main(int argc, char **argv)
{
    debug_init("/tmp/push_file.log");
    platform_detect();
    uloop_init();
    (void)wifi_reload_config(true);
    int result = 0;
    for (int i = 1; i < argc; i++)
        result |= push(argv[i]);
    (void)ng_uci_renew_change_context();
    const int shown = system("uci export; cat /tmp/wifi-delayed-* /tmp/cp-hosts* 2>/dev/null; "
                             "grep -E ' (ERROR|WARNING): ' /tmp/push_file.log >&2");
    (void)shown; // grep's status
    uloop_done();
    return result;
}
