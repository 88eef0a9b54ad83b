// Links: created, destroyed, made bridge ports, set up and down, asked for their state.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <unistd.h>

#include "netlink/rtnl.h"
#include "netlink/rtnl_internal.h"
#include "platform/zu/log.h"

constexpr size_t MIN_NAME_LENGTH = 2;
constexpr uint16_t MAX_VID = 4094;
constexpr int INDEX_ATTEMPTS = 3;
constexpr unsigned INDEX_RETRY_S = 1;
constexpr int LINK_UP_ATTEMPTS = 5;
constexpr useconds_t LINK_UP_RETRY_US = 100 * 1000;

static bool name_length_ok(const char *name)
{
    size_t length = strlen(name);
    return length >= MIN_NAME_LENGTH && length < IFNAMSIZ;
}

/// Opens, sends, closes. errno is the kernel's error after a refusal, 0 after other failures.
static int link_request_send(rtnl_link_request *request, rtnl_answer *answer)
{
    rtnl_handle rtnl;
    if (ng_rtnl_open(&rtnl, 0) < 0) {
        log_error("cannot open rtnl link");
        errno = 0;
        return -1;
    }
    errno = 0;
    int result = ng_rtnl_send(&rtnl, &request->header, answer);
    ng_rtnl_close(&rtnl);
    return result;
}

/// Names the VLAN after its parent and finds the parent's index.
static int vlan_describe(rtnl_link_create *link, const char *parent, char (&name)[IFNAMSIZ])
{
    if (link->vid > MAX_VID) {
        log_error("invalid vid: %d", link->vid);
        return -1;
    }
    link->parent_index = if_nametoindex(parent);
    if (!link->parent_index) {
        log_error("%s: failed to get ifindex: %s", parent, strerror(errno));
        return -1;
    }
    char whole[IFNAMSIZ + sizeof ".65535"];
    snprintf(whole, sizeof whole, "%s.%d", parent, link->vid);
    whole[IFNAMSIZ - 1] = '\0';
    memcpy(name, whole, IFNAMSIZ);
    link->name = name;
    return 0;
}

int _ng_rtnl_iface_create(unsigned kind, const char *name, uint16_t vid)
{
    if (!name) {
        log_error("%s is NULL", "ifname");
        return -1;
    }
    if (kind >= RTNL_KIND_COUNT) {
        log_error("invalid rtnl iface type %d", static_cast<int>(kind));
        return -1;
    }
    if (!name_length_ok(name)) {
        log_error("ifname name has invalid length: '%s'", name);
        return -1;
    }
    rtnl_link_create link = {static_cast<rtnl_iface_kind>(kind), name, 0, vid};
    char vlan_name[IFNAMSIZ];
    if (link.kind == RTNL_KIND_VLAN && vlan_describe(&link, name, vlan_name) < 0)
        return -1;

    log_notice("creating %s iface '%s'", rtnl_kind_name(link.kind), link.name);
    rtnl_link_request request =
        rtnl_link_request_make(RTM_NEWLINK, NLM_F_REQUEST | NLM_F_CREATE | NLM_F_EXCL, 0);
    if (rtnl_link_create_build(&request, link) < 0)
        return -1;
    if (link_request_send(&request, nullptr) < 0 && errno != EEXIST)
        return -1;
    return 0;
}

int ng_rtnl_iface_create_vlan(const char *parent, uint16_t vid)
{
    return _ng_rtnl_iface_create(RTNL_KIND_VLAN, parent, vid);
}

int ng_rtnl_iface_destroy(const char *name)
{
    if (!name) {
        log_error("%s is NULL", "name");
        return -1;
    }
    log_notice("destroying iface %s", name);
    if (!name_length_ok(name)) {
        log_error("iface name has invalid length: '%s'", name);
        return -1;
    }
    uint32_t index = if_nametoindex(name);
    if (!index) {
        log_info("%s: failed to get ifindex: %s", name, strerror(errno));
        return -1;
    }
    rtnl_link_request request = rtnl_link_request_make(RTM_DELLINK, NLM_F_REQUEST, index);
    return link_request_send(&request, nullptr);
}

/// Sets the master of `port_index`; 0 releases it.
static int master_set(uint32_t port_index, uint32_t master_index)
{
    rtnl_link_request request = rtnl_link_request_make(RTM_SETLINK, NLM_F_REQUEST, port_index);
    errno = 0;
    if (ng_addattr_l(&request.header, sizeof request, IFLA_MASTER, &master_index,
                     sizeof master_index) < 0)
        return -1;
    if (link_request_send(&request, nullptr) < 0 && errno != EEXIST)
        return -1;
    return 0;
}

int ng_rtnl_bridge_set(const char *bridge, const char *port)
{
    if (!port) {
        log_error("%s is NULL", "port");
        return -1;
    }
    const char *bridge_text = bridge ? bridge : "n/a";
    log_notice("enslaving %s in bridge %s", port, bridge_text);
    uint32_t port_index = if_nametoindex(port);
    if (!port_index) {
        log_error("%s: failed to get ifindex (slave): %s", port, strerror(errno));
        return -1;
    }
    uint32_t bridge_index = bridge ? if_nametoindex(bridge) : 0;
    if (bridge && !bridge_index) {
        log_error("%s: failed to get ifindex (bridge): %s", bridge, strerror(errno));
        return -1;
    }
    int result = master_set(port_index, bridge_index);
    if (result < 0)
        log_error("failed to rtnl send: ret %d : slave '%s' (%d) : bridge '%s' (%d)", result, port,
                  static_cast<int>(port_index), bridge_text, static_cast<int>(bridge_index));
    return result;
}

int ng_rtnl_bridge_enslave(const char *bridge, const char *port)
{
    return ng_rtnl_bridge_set(bridge, port);
}

int ng_rtnl_bridge_release(const char *port)
{
    return ng_rtnl_bridge_set(nullptr, port);
}

/// Asks for the flags of a link; false when the kernel does not tell them.
static bool link_flags_get(const char *name, uint32_t *flags)
{
    uint32_t index = if_nametoindex(name);
    if (!index) {
        log_error("%s: failed to get ifindex: %s", name, strerror(errno));
        return false;
    }
    rtnl_link_request request = rtnl_link_request_make(RTM_GETLINK, NLM_F_REQUEST, index);
    rtnl_answer answer; // large: a page that is not needed stays untouched
    if (link_request_send(&request, &answer) < 0)
        return false;
    nlmsghdr header;
    ifinfomsg info;
    memcpy(&header, answer.bytes.data(), sizeof header);
    if (header.nlmsg_type != RTM_NEWLINK || header.nlmsg_len < NLMSG_LENGTH(sizeof info))
        return false;
    memcpy(&info, answer.bytes.data() + NLMSG_HDRLEN, sizeof info);
    *flags = info.ifi_flags;
    return true;
}

bool ng_rtnl_iface_link_get_up(const char *name, bool ignore_running)
{
    if (!name) {
        log_error("%s is NULL", "iface");
        return false;
    }
    log_debug("iface %s", name);
    uint32_t flags;
    if (!link_flags_get(name, &flags))
        return false;
    const bool running = (flags & IFF_RUNNING) != 0;
    const bool up = (flags & IFF_UP) && (ignore_running || running);
    log_debug("interface %s is %sUP%s : ignore_running = %s", name, up ? "" : "*NOT* ",
              running ? " and RUNNING" : "", ignore_running ? "TRUE" : "FALSE");
    return up;
}

bool ng_rtnl_iface_link_get_retry(const char *name, bool ignore_running)
{
    if (!name) {
        log_error("%s is NULL", "iface");
        return false;
    }
    for (int retry = 0; retry < LINK_UP_ATTEMPTS; retry++) {
        if (ng_rtnl_iface_link_get_up(name, ignore_running)) {
            log_info("%s is up: retry %d", name, retry);
            return true;
        }
        log_notice("%s is NOT up: retry %d", name, retry);
        usleep(LINK_UP_RETRY_US);
    }
    return false;
}

uint32_t ng_rtnl_iface_index_get_retry(const char *name)
{
    if (!name) {
        log_error("%s is NULL", "iface");
        return 0;
    }
    for (int left = INDEX_ATTEMPTS - 1; left >= 0; left--) {
        uint32_t index = if_nametoindex(name);
        if (index)
            return index;
        if (left == 0)
            break;
        log_warning("%s: failed to get ifindex: retries left = %d: %s", name, left,
                    strerror(errno));
        sleep(INDEX_RETRY_S);
    }
    log_error("%s: failed to get ifindex (exhausted retries): %s", name, strerror(errno));
    return 0;
}

int ng_rtnl_iface_link_set_up(const char *name, bool up, bool running)
{
    if (!name) {
        log_error("%s is NULL", "iface");
        return -1;
    }
    const char *running_text = running ? " (running)" : " (not running)";
    log_notice("set iface %s %s%s", name, up ? "up" : "down", up ? running_text : "");
    uint32_t index = ng_rtnl_iface_index_get_retry(name);
    if (!index) {
        log_error("%s: failed to get ifindex", name);
        return -1;
    }
    log_notice("%s: ifindex = %d", name, static_cast<int>(index));

    rtnl_link_request request = rtnl_link_request_make(RTM_NEWLINK, NLM_F_REQUEST, index);
    request.info.ifi_change = IFF_UP;
    if (up)
        request.info.ifi_flags = running ? IFF_UP | IFF_RUNNING : IFF_UP;
    rtnl_handle rtnl;
    if (ng_rtnl_open(&rtnl, 0) < 0) {
        log_error("cannot open rtnl link: iface '%s'", name);
        return -1;
    }
    int result = ng_rtnl_send(&rtnl, &request.header, nullptr);
    ng_rtnl_close(&rtnl);
    if (result < 0)
        log_error("ng_rtnl_send() returned %d for iface '%s'", result, name);
    return result;
}

int ng_rtnl_iface_set_up(const char *name, bool up)
{
    return ng_rtnl_iface_link_set_up(name, up, false);
}
