// The batman-adv neighbour query: the life of its socket, and one dump a query.
#include "netlink/batman.h"

#include <cerrno>
#include <linux/batman_adv.h>
#include <net/if.h>

#include "netlink/batman_internal.h"
#include "netlink/nl_handle.h"
#include "platform/zu/log.h"

constexpr const char *MESH_NAME = "bat0";

bat_neighbor_query gBat_neighbor_query;

/// Makes socket, family id and callback set in that order; logs the first that fails.
static int query_open(bat_neighbor_query *query)
{
    query->socket = nl_socket_alloc();
    if (!query->socket) {
        log_error("Unable to create netlink socket for BATMAN");
        return -1;
    }
    if (genl_connect(query->socket) < 0) {
        log_error("Unable to connect to netlink socket for BATMAN");
        return -1;
    }
    query->family_id = genl_ctrl_resolve(query->socket, BATADV_NL_NAME);
    if (query->family_id < 0) {
        log_error("Unable to find BATMAN on netlink socket");
        return -1;
    }
    query->callbacks = nl_cb_alloc(NL_CB_DEFAULT);
    if (!query->callbacks) {
        log_error("Unable to allocate callback for netlink transaction");
        return -1;
    }
    return 0;
}

int bat_nlsock_create()
{
    bat_nlsock_close();
    if (query_open(&gBat_neighbor_query) == 0)
        return 0;
    bat_nlsock_close();
    return -1;
}

void bat_nlsock_close()
{
    nl_cb_put(gBat_neighbor_query.callbacks);
    nl_socket_free(gBat_neighbor_query.socket);
    gBat_neighbor_query = {};
}

/// The kernel refused the dump as a whole.
static int refused_cb(sockaddr_nl *, nlmsgerr *refusal, void *ended)
{
    *static_cast<bool *>(ended) = true;
    log_error("Got error: %s", nl_kernel_error_text(refusal->error));
    return NL_STOP;
}

/// Sends the request and reads until the dump ends. False when it broke off: what is left of it
/// would be read as the answer to the next query.
static bool neighbors_dump(nl_msg *request, uint32_t *counter)
{
    const bat_neighbor_query &query = gBat_neighbor_query;
    bool ended = false;
    nl_cb_set(query.callbacks, NL_CB_VALID, NL_CB_CUSTOM, bat_get_neighbors_cb, counter);
    nl_cb_set(query.callbacks, NL_CB_FINISH, NL_CB_CUSTOM, bat_neighbors_finish, &ended);
    nl_cb_err(query.callbacks, NL_CB_CUSTOM, refused_cb, &ended);

    int result = nl_send_auto_complete(query.socket, request);
    if (result >= 0)
        result = nl_recvmsgs(query.socket, query.callbacks);
    if (!ended)
        log_error("BATMAN neighbor query broke off: %s", nl_geterror(result));
    return ended;
}

uint32_t bat_check_neighbors()
{
    if (!gBat_neighbor_query.socket && bat_nlsock_create() < 0) {
        log_error("Unable to connect to BATMAN netlink socket");
        return 0;
    }
    uint32_t mesh_index = if_nametoindex(MESH_NAME);
    if (!mesh_index) {
        log_error("Unable to find '%s' iface", MESH_NAME);
        return 0;
    }
    nl_msg_handle request(nlmsg_alloc());
    if (!request ||
        bat_neighbors_request_build(request.get(), gBat_neighbor_query.family_id, mesh_index) < 0) {
        log_error("Couldn't allocate netlink message to BATMAN");
        return 0;
    }
    uint32_t counter = 0;
    if (!neighbors_dump(request.get(), &counter))
        bat_nlsock_close();
    log_debug("Got %d neighbors on BATMAN iface", static_cast<int>(counter));
    return counter;
}
