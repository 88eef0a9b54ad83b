// Monitors: clients that get a copy of every message, their own included, but not of the copies.
#include "broker.h"

static std::vector<broker_client *> monitors;

int monitor_invoke(broker_client *client, const std::string &method)
{
    if (!client->trusted)
        return UBUS_STATUS_PERMISSION_DENIED;
    if (method == "add") {
        monitor_forget(client);
        client->monitor_seq = 0;
        monitors.push_back(client);
        return UBUS_STATUS_OK;
    }
    if (method == "remove") {
        monitor_forget(client);
        return UBUS_STATUS_OK;
    }
    return UBUS_STATUS_METHOD_NOT_FOUND;
}

void monitor_forget(const broker_client *client)
{
    std::erase(monitors, client);
}

void monitor_copy(const broker_client *client, const ubus_msghdr &hdr, const blob_attr *msg,
                  bool to_client)
{
    if (monitors.empty() || (to_client && hdr.type == UBUS_MSG_MONITOR))
        return;
    wire_buf b;
    blob_put_int32(&b.b, UBUS_MONITOR_CLIENT, client->id);
    blob_put_int32(&b.b, UBUS_MONITOR_PEER, hdr.peer);
    blob_put_int32(&b.b, UBUS_MONITOR_SEQ, hdr.seq);
    blob_put_int32(&b.b, UBUS_MONITOR_TYPE, hdr.type);
    blob_put_int8(&b.b, UBUS_MONITOR_SEND, to_client);
    blob_put(&b.b, UBUS_MONITOR_DATA, blob_data(msg), (unsigned)blob_len(msg));
    for (broker_client *monitor : monitors)
        client_post(monitor, UBUS_MSG_MONITOR, ++monitor->monitor_seq, 0, b.msg());
}
