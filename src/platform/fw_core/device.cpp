// Requests to the rest of the device: a check-in with the cloud, a reboot.
#include <cstring>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/shell.h"
#include "platform/zu/ubus_call.h"

static int gOutstanding;

static void checkin_done_cb(int status, void *)
{
    gOutstanding--;
    if (status != UBUS_STATUS_OK)
        log_warning("The check-in was not taken: %s", ubus_strerror(status));
}

/// 0, or a bus status.
static int checkin_call(ubus_context *ctx, uint32_t cloud_comm, const char *type, bool delayed)
{
    blob_buffer message;
    if (blob_buf_init(&message, 0) != 0) {
        log_warning("Unable to allocate message for checkin request");
        return UBUS_STATUS_NO_MEMORY;
    }
    if (blobmsg_add_string(&message, "checkin_type", type) != 0)
        log_info("Unable to add 'checkin_type' to checkin call message");
    if (delayed && blobmsg_add_u8(&message, "delayed", 1) != 0)
        log_info("Unable to add 'delayed' to checkin call message");
    return zu_ubus_call_async(ctx, cloud_comm, "checkin", message.head, CLOUD_CHECKIN_TIMEOUT_MS,
                              checkin_done_cb, nullptr);
}

void cloud_checkin(ubus_context *ctx, const char *type, bool delayed)
{
    uint32_t cloud_comm = 0;
    if (gOutstanding >= CLOUD_CHECKINS_MAX) {
        log_warning("Too many check-ins are waiting for an answer, dropping one more");
        return;
    }
    // An object that is hidden is found without an id.
    if (!ctx || ubus_lookup_id(ctx, "qnet.cloud_comm", &cloud_comm) != UBUS_STATUS_OK ||
        cloud_comm == 0) {
        log_warning("Unable to locate qnet.cloud_comm to trigger checkin");
        return;
    }
    if (checkin_call(ctx, cloud_comm, type, delayed) != UBUS_STATUS_OK) {
        log_warning("Failed to trigger checkin");
        return;
    }
    gOutstanding++;
    log_info("Checkin triggered successfully");
}

void _fw_core_reboot(const char *reason)
{
    log_notice("Rebooting: %s", reason);
    const shell_result result = shell_run("reboot");
    if (!result.ran)
        log_error("Failed to reboot: %s", strerror(result.error));
    else if (result.exit_status != 0)
        log_error("Failed to reboot: exit status %d", result.exit_status);
}
