// The neighbour request of batman-adv and its answers: one message a neighbour, then the end of the
// dump with an error code.
#include <cstring>

#include "netlink/batman_internal.h"
#include "netlink/nl_attr.h"
#include "netlink/nl_handle.h"
#include "platform/zu/log.h"

// Numbers of the batman-adv interface that are used here, under the kernel's names.
constexpr uint8_t BATADV_CMD_GET_NEIGHBORS = 9;
constexpr uint8_t BATADV_FAMILY_VERSION = 1;
constexpr int BATADV_ATTR_MESH_IFINDEX = 3;
constexpr int BATADV_ATTR_NEIGH_ADDRESS = 24;
constexpr int BATADV_ATTR_HIGHEST = 60;

constexpr uint16_t MAC_LENGTH = 6;
constexpr uint16_t NAME_LENGTH = 16;

constexpr nl_policy<BATADV_ATTR_HIGHEST> neighbor_policy_make()
{
    nl_policy<BATADV_ATTR_HIGHEST> policy = {};
    for (int string : {1, 2})
        policy[string] = nl_policy_type(NLA_STRING);
    for (int name : {4, 7})
        policy[name] = nl_policy_type(NLA_STRING, NAME_LENGTH);
    for (int mac : {5, 8, 9, 16, BATADV_ATTR_NEIGH_ADDRESS, 29, 31, 33})
        policy[mac] = nl_policy_fixed(MAC_LENGTH);
    for (int number : {10, 17, 18, 25})
        policy[number] = nl_policy_type(NLA_U8);
    for (int number : {20, 32, 34})
        policy[number] = nl_policy_type(NLA_U16);
    for (int number : {BATADV_ATTR_MESH_IFINDEX, 6, 11, 13, 19, 21, 23, 26, 27, 28})
        policy[number] = nl_policy_type(NLA_U32);
    policy[12] = nl_policy_type(NLA_U64);
    for (int flag : {15, 22, 30})
        policy[flag] = nl_policy_type(NLA_FLAG);
    return policy;
}

constexpr auto NEIGHBOR_POLICY = neighbor_policy_make();

int bat_neighbors_request_build(nl_msg *msg, int family_id, uint32_t mesh_index)
{
    if (!genlmsg_put(msg, NL_AUTO_PID, NL_AUTO_SEQ, family_id, 0, NLM_F_DUMP,
                     BATADV_CMD_GET_NEIGHBORS, BATADV_FAMILY_VERSION))
        return -1;
    return nla_put_u32(msg, BATADV_ATTR_MESH_IFINDEX, mesh_index) < 0 ? -1 : 0;
}

int bat_get_neighbors_cb(nl_msg *msg, void *counter)
{
    if (!msg || !counter) {
        log_error("%s is NULL", msg ? "arg" : "msg");
        return NL_OK;
    }
    nlmsghdr *header = nlmsg_hdr(msg);
    if (!genlmsg_valid_hdr(header, 0)) {
        log_error("Got invalid data from kernel.");
        return NL_OK;
    }
    auto *generic = (genlmsghdr *)nlmsg_data(header);
    if (generic->cmd != BATADV_CMD_GET_NEIGHBORS)
        return NL_OK;
    nlattr *attributes[BATADV_ATTR_HIGHEST + 1];
    if (nla_parse(attributes, BATADV_ATTR_HIGHEST, genlmsg_attrdata(generic, 0),
                  genlmsg_attrlen(generic, 0), NEIGHBOR_POLICY.data()) < 0) {
        log_error("Got unknown attributes from kernel.");
        return NL_OK;
    }
    if (attributes[BATADV_ATTR_NEIGH_ADDRESS])
        ++*(uint32_t *)counter;
    else
        log_error("Netlink message didn't include neighbor address");
    return NL_OK;
}

int bat_neighbors_finish(nl_msg *msg, void *ended)
{
    if (ended)
        *(bool *)ended = true;
    if (!msg) {
        log_error("%s is NULL", "msg");
        return NL_STOP;
    }
    int error = nl_dump_end_error(msg);
    if (error != 0)
        log_error("Got error: %s", strerror((int)(0u - (unsigned)error)));
    return NL_STOP;
}
