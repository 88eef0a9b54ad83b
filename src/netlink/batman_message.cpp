// The neighbour request of batman-adv and its answers: one message a neighbour, then the end of the
// dump with an error code.
#include <linux/batman_adv.h>
#include <net/if.h>

#include "netlink/batman_internal.h"
#include "netlink/nl_attr.h"
#include "netlink/nl_handle.h"
#include "platform/zu/log.h"

constexpr uint8_t FAMILY_VERSION = 1;
constexpr uint16_t MAC_LENGTH = 6;

constexpr nl_policy<BATADV_ATTR_MAX> neighbor_policy_make()
{
    nl_policy<BATADV_ATTR_MAX> policy = {};
    for (int string : {BATADV_ATTR_VERSION, BATADV_ATTR_ALGO_NAME})
        policy[string] = nl_policy_type(NLA_STRING);
    for (int name : {BATADV_ATTR_MESH_IFNAME, BATADV_ATTR_HARD_IFNAME})
        policy[name] = nl_policy_type(NLA_STRING, IFNAMSIZ);
    for (int mac : {BATADV_ATTR_MESH_ADDRESS, BATADV_ATTR_HARD_ADDRESS, BATADV_ATTR_ORIG_ADDRESS,
                    BATADV_ATTR_TT_ADDRESS, BATADV_ATTR_NEIGH_ADDRESS, BATADV_ATTR_ROUTER,
                    BATADV_ATTR_BLA_ADDRESS, BATADV_ATTR_BLA_BACKBONE})
        policy[mac] = nl_policy_fixed(MAC_LENGTH);
    for (int number : {BATADV_ATTR_TPMETER_RESULT, BATADV_ATTR_TT_TTVN, BATADV_ATTR_TT_LAST_TTVN,
                       BATADV_ATTR_TQ})
        policy[number] = nl_policy_type(NLA_U8);
    for (int number : {BATADV_ATTR_TT_VID, BATADV_ATTR_BLA_VID, BATADV_ATTR_BLA_CRC})
        policy[number] = nl_policy_type(NLA_U16);
    for (int number :
         {BATADV_ATTR_MESH_IFINDEX, BATADV_ATTR_HARD_IFINDEX, BATADV_ATTR_TPMETER_TEST_TIME,
          BATADV_ATTR_TPMETER_COOKIE, BATADV_ATTR_TT_CRC32, BATADV_ATTR_TT_FLAGS,
          BATADV_ATTR_LAST_SEEN_MSECS, BATADV_ATTR_THROUGHPUT, BATADV_ATTR_BANDWIDTH_UP,
          BATADV_ATTR_BANDWIDTH_DOWN})
        policy[number] = nl_policy_type(NLA_U32);
    policy[BATADV_ATTR_TPMETER_BYTES] = nl_policy_type(NLA_U64);
    for (int flag : {BATADV_ATTR_ACTIVE, BATADV_ATTR_FLAG_BEST, BATADV_ATTR_BLA_OWN})
        policy[flag] = nl_policy_type(NLA_FLAG);
    return policy;
}

constexpr auto NEIGHBOR_POLICY = neighbor_policy_make();

int bat_neighbors_request_build(nl_msg *msg, int family_id, uint32_t mesh_index)
{
    if (!genlmsg_put(msg, NL_AUTO_PID, NL_AUTO_SEQ, family_id, 0, NLM_F_DUMP,
                     BATADV_CMD_GET_NEIGHBORS, FAMILY_VERSION))
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
    auto *generic = static_cast<genlmsghdr *>(nlmsg_data(header));
    if (generic->cmd != BATADV_CMD_GET_NEIGHBORS)
        return NL_OK;
    nlattr *attributes[BATADV_ATTR_MAX + 1];
    if (nla_parse(attributes, BATADV_ATTR_MAX, genlmsg_attrdata(generic, 0),
                  genlmsg_attrlen(generic, 0), NEIGHBOR_POLICY.data()) < 0) {
        log_error("Got unknown attributes from kernel.");
        return NL_OK;
    }
    if (attributes[BATADV_ATTR_NEIGH_ADDRESS])
        ++*static_cast<uint32_t *>(counter);
    else
        log_error("Netlink message didn't include neighbor address");
    return NL_OK;
}

int bat_neighbors_finish(nl_msg *msg, void *ended)
{
    if (ended)
        *static_cast<bool *>(ended) = true;
    if (!msg) {
        log_error("%s is NULL", "msg");
        return NL_STOP;
    }
    int error = nl_dump_end_error(msg);
    if (error != 0)
        log_error("Got error: %s", nl_kernel_error_text(error));
    return NL_STOP;
}
