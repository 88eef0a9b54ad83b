// The wired package's callbacks; its state document is wired_dump.cpp's.
#include "wired/wired.h"

#include "platform/zu/log.h"
#include "wifi/wifi.h"
#include "wired/bridges.h"
#include "wired/inet_probe.h"
#include "wired/netifd/iface.h"
#include "wired/upstream.h"
#include "wired/wired_event.h"

int wired_reload_config(ubus_context *, blob_attr *, blob_buf *)
{
    if (gWired_taken_down < 0)
        return UBUS_STATUS_OK;
    wifid_apply_bridges();
    upstream_reapply_forwarding();
    return reload_inet_test_config();
}

int gen_checkin_wired_section(ubus_context *, blob_attr *, blob_buf *reply)
{
    if (!reply) {
        log_error("%s is NULL", "checkin_data");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const iface_entry *bridge = find_bridge_uplink();
    if (!bridge) {
        log_info("No wired uplink, restarting enumeration");
        init_bridge_info();
        return UBUS_STATUS_OK;
    }
    if (blobmsg_add_string(reply, "maint_ip", bridge->address) != 0)
        log_info("Unable to add maintenance IP to checkin");
    return UBUS_STATUS_OK;
}
