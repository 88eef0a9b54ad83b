// procd's object "service": writes down what it is asked; a "config.change" event goes on to the
// daemons that follow the configuration, as procd's reload triggers do.
#include "peer.h"

static const blobmsg_policy EVENT_ARGUMENTS[] = {{.name = "type", .type = BLOBMSG_TYPE_STRING},
                                                 {.name = "data", .type = BLOBMSG_TYPE_TABLE}};
static const blobmsg_policy NAME_ARGUMENTS[] = {{.name = "name", .type = BLOBMSG_TYPE_STRING}};
static const peer_method METHODS[] = {
    {"event", EVENT_ARGUMENTS}, {"list", NAME_ARGUMENTS},   {"set", NAME_ARGUMENTS},
    {"add", NAME_ARGUMENTS},    {"delete", NAME_ARGUMENTS}, {"signal", NAME_ARGUMENTS},
    {"state", NAME_ARGUMENTS},
};
constexpr const char *FOLLOWERS[] = {"network", "hostapd"};

/// The answers are of no interest, and the follower may have work with the daemon that asked.
static void reload(const char *path)
{
    uint32_t id = 0;
    if (ubus_lookup_id(peer_bus(), path, &id) != 0)
        return;
    ubus_request request;
    if (ubus_invoke_async(peer_bus(), id, "reload", nullptr, &request) == 0)
        ubus_abort_request(peer_bus(), &request);
}

static int service_call(const peer_object &, const std::string &method, blob_attr *msg, blob_buf *)
{
    if (method != "list")
        peer_journal("service " + method + " " + peer_json(msg));
    if (method == "event" && peer_string(msg, "type") == "config.change")
        for (const char *path : FOLLOWERS)
            reload(path);
    return UBUS_STATUS_OK;
}

static void start()
{
    peer_publish("service", METHODS, service_call);
}

int main()
{
    return peer_run("sim_procd", start);
}
