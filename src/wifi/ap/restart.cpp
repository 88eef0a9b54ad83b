// Makes the next reload set every radio up anew, changed or not.
#include <cstdio>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ubus_call.h"
#include "wifi/wifi.h"

constexpr int SERVICE_TIMEOUT_MS = 5000;
constexpr char STATE_DIR[] = "/var/state";

/// What was written to a radio is remembered by digests; without them it counts as changed.
static int forget_digests(int radio)
{
    char name[48];
    snprintf(name, sizeof name, "wireless._phy%d.md5", radio);
    if (ng_uci_delete_state(STATE_DIR, name) != 0)
        return -1;
    snprintf(name, sizeof name, "wireless._phy%d.md5_mesh%d", radio, radio);
    return ng_uci_delete_state(STATE_DIR, name);
}

static int reload_wireless(ubus_context *ctx)
{
    uint32_t id = 0;
    if (ubus_lookup_id(ctx, "service", &id) != UBUS_STATUS_OK) {
        log_error("Failed to lookup UBUS ID for 'service'");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    blob_buffer msg;
    blob_buf_init(&msg, 0);
    blobmsg_add_string(&msg, "type", "config.change");
    void *data = blobmsg_open_table(&msg, "data");
    blobmsg_add_string(&msg, "package", "wireless");
    blobmsg_close_table(&msg, data);
    if (!msg.head) {
        log_error("Unable to allocate memory to trigger wifi iface reload");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    return zu_ubus_call_async(ctx, id, "event", msg.head, SERVICE_TIMEOUT_MS, nullptr, nullptr);
}

int ubus_force_wifi_restart(ubus_context *ctx, ubus_object *, ubus_request_data *, const char *,
                            blob_attr *)
{
    const int radios = wifi_radio_count();
    for (int radio = 0; radio < radios; radio++) {
        if (forget_digests(radio) != 0) {
            log_error("Unable to allocate a UCI context");
            return UBUS_STATUS_UNKNOWN_ERROR;
        }
    }
    return reload_wireless(ctx);
}
