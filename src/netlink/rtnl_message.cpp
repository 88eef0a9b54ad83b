// Route netlink requests as bytes: the order of attributes and every length is fixed here. Nothing
// is sent from here.
#include <arpa/inet.h>
#include <cstring>
#include <net/if.h>
#include <sys/socket.h>

#include "netlink/rtnl_internal.h"
#include "platform/zu/log.h"

constexpr uint32_t DEFAULT_PRIORITY = 500;
constexpr int MAX_HEADER_TABLE = 255;

constexpr const char *KIND_NAMES[RTNL_KIND_COUNT] = {"invalid", "batadv", "bridge", "vlan"};

const char *rtnl_kind_name(rtnl_iface_kind kind)
{
    return KIND_NAMES[kind];
}

int ng_addattr_l(nlmsghdr *msg, size_t maxlen, uint16_t type, const void *data, size_t len)
{
    if (!msg) {
        log_error("%s is NULL", "msg");
        return -1;
    }
    // In 64 bits, and after the attribute's own 16-bit length was checked, nothing can wrap.
    uint64_t start = (uint64_t{msg->nlmsg_len} + 3) & ~uint64_t{3};
    uint64_t end = start + ((uint64_t{len} + RTA_LENGTH(0) + 3) & ~uint64_t{3});
    if (len > UINT16_MAX - RTA_LENGTH(0) || end > maxlen) {
        log_error("message exceeded bound of %d", static_cast<int>(maxlen));
        return -1;
    }
    auto *bytes = reinterpret_cast<uint8_t *>(msg);
    rtattr attribute = {.rta_len = static_cast<unsigned short>(RTA_LENGTH(len)), .rta_type = type};
    memset(bytes + start, 0, end - start);
    memcpy(bytes + start, &attribute, sizeof attribute);
    if (data && len > 0)
        memcpy(bytes + start + sizeof attribute, data, len);
    msg->nlmsg_len = static_cast<uint32_t>(end);
    return 0;
}

rtnl_link_request rtnl_link_request_make(uint16_t type, uint16_t flags, uint32_t ifindex)
{
    rtnl_link_request request = {};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
    request.header.nlmsg_type = type;
    request.header.nlmsg_flags = flags;
    request.info.ifi_family = AF_PACKET;
    request.info.ifi_index = static_cast<int>(ifindex);
    return request;
}

static int link_add(rtnl_link_request *request, uint16_t type, const void *data, size_t len)
{
    return ng_addattr_l(&request->header, sizeof *request, type, data, len);
}

/// Opens a nest; its offset is given to nest_close(). The kernel knows a nest by its type here, not
/// by the flag for nests.
static int nest_open(rtnl_link_request *request, uint16_t type, uint32_t *offset)
{
    *offset = NLMSG_ALIGN(request->header.nlmsg_len);
    return link_add(request, type, nullptr, 0);
}

static void nest_close(rtnl_link_request *request, uint32_t offset)
{
    auto length = static_cast<uint16_t>(request->header.nlmsg_len - offset);
    memcpy(reinterpret_cast<uint8_t *>(request) + offset, &length, sizeof length);
}

static int vlan_data_add(rtnl_link_request *request, uint16_t vid)
{
    uint32_t data;
    if (nest_open(request, IFLA_INFO_DATA, &data) < 0 ||
        link_add(request, IFLA_VLAN_ID, &vid, sizeof vid) < 0)
        return -1;
    nest_close(request, data);
    return 0;
}

int rtnl_link_create_build(rtnl_link_request *request, const rtnl_link_create &link)
{
    const bool vlan = link.kind == RTNL_KIND_VLAN;
    const char *kind = rtnl_kind_name(link.kind);
    uint32_t info;
    if (nest_open(request, IFLA_LINKINFO, &info) < 0 ||
        link_add(request, IFLA_INFO_KIND, kind, strlen(kind)) < 0)
        return -1;
    if (vlan && vlan_data_add(request, link.vid) < 0)
        return -1;
    nest_close(request, info);
    if (vlan && link_add(request, IFLA_LINK, &link.parent_index, sizeof link.parent_index) < 0)
        return -1;
    return link_add(request, IFLA_IFNAME, link.name, strlen(link.name));
}

static int rule_add(rtnl_rule_request *request, uint16_t type, const void *data, size_t len)
{
    // By the request, not by its first member: what is added lies behind that.
    return ng_addattr_l(reinterpret_cast<nlmsghdr *>(request), sizeof *request, type, data, len);
}

/// The table's number, in the header when it fits there.
static int rule_table_add(rtnl_rule_request *request, int table)
{
    if (table <= MAX_HEADER_TABLE) {
        request->rule.table = static_cast<uint8_t>(table);
        return 0;
    }
    auto number = static_cast<uint32_t>(table);
    return rule_add(request, FRA_TABLE, &number, sizeof number);
}

static int rule_addresses_add(rtnl_rule_request *request, const rtnl_rule &rule)
{
    if (rule.src) {
        request->rule.src_len = 32;
        uint32_t src = htonl(rule.src);
        if (rule_add(request, FRA_SRC, &src, sizeof src) < 0)
            return -1;
    }
    if (!rule.dst)
        return 0;
    // Modulo 32: a prefix length of 0 keeps the whole address.
    unsigned host_bits = (32u - static_cast<unsigned>(rule.dst_len)) % 32;
    uint32_t dst = htonl((rule.dst >> host_bits) << host_bits);
    return rule_add(request, FRA_DST, &dst, sizeof dst);
}

int rtnl_rule_build(rtnl_rule_request *request, const rtnl_rule &rule)
{
    *request = {};
    request->header.nlmsg_len = NLMSG_LENGTH(sizeof(fib_rule_hdr));
    request->header.nlmsg_type = rule.msg_type;
    request->header.nlmsg_flags = static_cast<uint16_t>(rule.msg_flags | NLM_F_REQUEST);
    request->rule.family = AF_INET;
    request->rule.dst_len = static_cast<uint8_t>(rule.dst_len);
    request->rule.action = rule.route_type;

    uint32_t priority = rule.priority < 0 ? DEFAULT_PRIORITY : static_cast<uint32_t>(rule.priority);
    if (rule_add(request, FRA_PRIORITY, &priority, sizeof priority) < 0 ||
        rule_table_add(request, rule.table) < 0 || rule_addresses_add(request, rule) < 0)
        return -1;
    if (!rule.iif)
        return 0;
    return rule_add(request, FRA_IFNAME, rule.iif, strlen(rule.iif) + 1);
}
