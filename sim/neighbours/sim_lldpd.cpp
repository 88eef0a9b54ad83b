// The LLDP daemon's object qnet.lldp: "negotiate" {"complete": BOOL} writes the run-time state
// wireless._lldp.negotiation_complete and, when complete, tells the subscribers.
#include "peer.h"

static const blobmsg_policy ARGUMENTS[] = {{.name = "complete", .type = BLOBMSG_TYPE_BOOL}};
static const peer_method METHODS[] = {{"negotiate", ARGUMENTS}, {"status", {}}};

static peer_object *lldp;
static bool complete = true;

static void write_state()
{
    peer_shell(std::string("uci -P /var/state set wireless._lldp=lldp && "
                           "uci -P /var/state set wireless._lldp.negotiation_complete=") +
               (complete ? "1" : "0"));
}

static int lldp_call(const peer_object &, const std::string &method, blob_attr *msg,
                     blob_buf *reply)
{
    if (method == "status") {
        blobmsg_add_u8(reply, "negotiation_complete", complete);
        return UBUS_STATUS_OK;
    }
    complete = peer_int(msg, "complete", 1) != 0;
    write_state();
    peer_journal(complete ? "negotiation complete" : "negotiation started");
    if (!complete)
        return UBUS_STATUS_OK;
    blob_buf nothing = {};
    blob_buf_init(&nothing, 0);
    peer_notify(lldp, "lldp_negotiation_complete", nothing.head);
    blob_buf_free(&nothing);
    return UBUS_STATUS_OK;
}

static void start()
{
    lldp = peer_publish("qnet.lldp", METHODS, lldp_call);
}

int main()
{
    return peer_run("sim_lldpd", start);
}
