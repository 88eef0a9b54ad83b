// IPv4 policy rules: which routing table a packet is looked up in.
#include <cerrno>

#include "netlink/rtnl.h"
#include "netlink/rtnl_internal.h"
#include "platform/zu/log.h"

// The four bytes of an address, most significant first, for "%u.%u.%u.%u".
#define ADDRESS_BYTES(address)                                                                     \
    (address) >> 24, (address) >> 16 & 0xff, (address) >> 8 & 0xff, (address)&0xff

int ng_rtnl_rule_set(rtnl_handle *rtnl, const rtnl_rule &rule)
{
    if (!rtnl) {
        log_error("%s is NULL", "rtnl");
        return -1;
    }
    rtnl_rule_request request;
    if (rtnl_rule_build(&request, rule) < 0)
        return -1;
    // Cleared first, so that a failure without an answer is not taken for an old EEXIST.
    errno = 0;
    if (ng_rtnl_send(rtnl, &request.header, nullptr) < 0 && errno != EEXIST)
        return -1;
    return 0;
}

static int rule_change(rtnl_rule rule)
{
    rtnl_handle rtnl;
    if (ng_rtnl_open(&rtnl, 0) < 0) {
        log_error("cannot open rtnl link");
        return -1;
    }
    if (rule.table == 0)
        rule.table = RT_TABLE_MAIN;
    int result = ng_rtnl_rule_set(&rtnl, rule);
    ng_rtnl_close(&rtnl);
    return result;
}

int ng_rtnl_iface_rule_add(const char *iif, uint32_t src, uint32_t dst, int dst_len, int table,
                           int priority)
{
    log_info("adding iif %s from %u.%u.%u.%u to %u.%u.%u.%u/%d table %d", iif ? iif : "(null)",
             ADDRESS_BYTES(src), ADDRESS_BYTES(dst), dst_len, table);
    return rule_change({.msg_type = RTM_NEWRULE,
                        .msg_flags = NLM_F_CREATE | NLM_F_EXCL,
                        .iif = iif,
                        .src = src,
                        .dst = dst,
                        .dst_len = dst_len,
                        .table = table,
                        .route_type = RTN_UNICAST,
                        .priority = priority});
}

int ng_rtnl_iface_rule_del(const char *iif, uint32_t src, uint32_t dst, int dst_len, int table,
                           int priority)
{
    log_info("deleting iif %s from %u.%u.%u.%u to %u.%u.%u.%u/%d table %d", iif ? iif : "(null)",
             ADDRESS_BYTES(src), ADDRESS_BYTES(dst), dst_len, table);
    return rule_change({.msg_type = RTM_DELRULE,
                        .msg_flags = 0,
                        .iif = iif,
                        .src = src,
                        .dst = dst,
                        .dst_len = dst_len,
                        .table = table,
                        .route_type = RTN_UNSPEC,
                        .priority = priority});
}
