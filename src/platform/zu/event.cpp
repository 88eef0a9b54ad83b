// Bus events: one connection, set by whoever makes it.
#include "platform/zu/event.h"

#include <libubus.h>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"

static ubus_context *gContext;

void zu_event_set_context(ubus_context *ctx)
{
    gContext = ctx;
}

/// Sends, unless the connection is known to be gone: a call on it would only start its loss anew.
static int event_send(const char *type, blob_attr *data)
{
    if (!gContext || gContext->sock.eof)
        return UBUS_STATUS_CONNECTION_FAILED;
    return ubus_send_event(gContext, type, data);
}

int _zu_send_event(const char *type, blob_attr *data)
{
    blob_buffer empty;
    if (!data && blob_buf_init(&empty, 0) == 0)
        data = empty.head;
    const int status = data ? event_send(type, data) : UBUS_STATUS_NO_MEMORY;
    if (status != UBUS_STATUS_OK)
        log_warning("Failed to send event '%s': %s", type, ubus_strerror(status));
    return status;
}
