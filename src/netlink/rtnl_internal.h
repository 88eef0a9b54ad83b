// Route netlink below the calls of rtnl.h: requests as bytes (pure), the reading of one datagram
// (pure), and the socket that sends one request and waits for its answer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <linux/fib_rules.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <span>

constexpr size_t RTNL_ATTRIBUTES_SIZE = 256;
constexpr size_t RTNL_RECEIVE_SIZE = 16384;

// --- requests
// -------------------------------------------------------------------------------------

struct rtnl_link_request {
    nlmsghdr header;
    ifinfomsg info;
    std::array<uint8_t, RTNL_ATTRIBUTES_SIZE> attributes;
};
static_assert(sizeof(rtnl_link_request) == 288);

struct rtnl_rule_request {
    nlmsghdr header;
    fib_rule_hdr rule;
    std::array<uint8_t, RTNL_ATTRIBUTES_SIZE> attributes;
};
static_assert(sizeof(rtnl_rule_request) == 284);

/// The kinds of links that can be created; their texts are the kernel's.
enum rtnl_iface_kind : unsigned {
    RTNL_KIND_INVALID,
    RTNL_KIND_BATADV,
    RTNL_KIND_BRIDGE,
    RTNL_KIND_VLAN,
    RTNL_KIND_COUNT,
};

/// What makes a link. The name is sent without its NUL; parent and vid are for VLANs alone.
struct rtnl_link_create {
    rtnl_iface_kind kind;
    const char *name;
    uint32_t parent_index;
    uint16_t vid;
};

/// A policy rule and what to do with it; see ng_rtnl_iface_rule_add() for the fields' meaning.
struct rtnl_rule {
    uint16_t msg_type;
    uint16_t msg_flags;
    const char *iif;
    uint32_t src;
    uint32_t dst;
    int dst_len;
    int table;
    uint8_t route_type;
    int priority;
};

const char *rtnl_kind_name(rtnl_iface_kind kind);

/// Appends one attribute at the message's aligned end. Refuses (-1, logged) what would make the
/// message longer than `maxlen` bytes, the size of the buffer that `msg` starts.
[[nodiscard]] int ng_addattr_l(nlmsghdr *msg, size_t maxlen, uint16_t type, const void *data,
                               size_t len);

/// A link request without attributes.
rtnl_link_request rtnl_link_request_make(uint16_t type, uint16_t flags, uint32_t ifindex);
/// Adds to a RTM_NEWLINK request the attributes that create `link`.
[[nodiscard]] int rtnl_link_create_build(rtnl_link_request *request, const rtnl_link_create &link);
[[nodiscard]] int rtnl_rule_build(rtnl_rule_request *request, const rtnl_rule &rule);

// --- answers
// --------------------------------------------------------------------------------------

/// Room for the longest message that a datagram can hold.
struct rtnl_answer {
    alignas(nlmsghdr) std::array<uint8_t, RTNL_RECEIVE_SIZE> bytes;
};

struct rtnl_datagram {
    std::span<const uint8_t> bytes; ///< aligned like a nlmsghdr
    uint32_t sender_port;
    bool truncated; ///< the kernel had more than the buffer could take
};

/// Whose answer is waited for.
struct rtnl_expected {
    uint32_t port;
    uint32_t seq;
};

enum rtnl_verdict {
    RTNL_ANSWERED, ///< acknowledged, or the answer was copied
    RTNL_FAILED,   ///< refused by the kernel (errno says why) or unreadable; logged
    RTNL_WAITING,  ///< nothing for us in this datagram: receive the next one
};

/// Reads one datagram; `answer` may be null when only an acknowledgement is waited for.
rtnl_verdict rtnl_datagram_read(const rtnl_datagram &datagram, const rtnl_expected &expected,
                                rtnl_answer *answer);

// --- socket
// ---------------------------------------------------------------------------------------

struct rtnl_handle {
    int32_t fd; ///< -1 when closed
    sockaddr_nl local;
    sockaddr_nl peer;
    uint32_t seq; ///< of the last request
    uint32_t dump;
};

[[nodiscard]] int ng_rtnl_open(rtnl_handle *rtnl, uint32_t subscriptions);
/// Keeps errno.
void ng_rtnl_close(rtnl_handle *rtnl);
/// Sends `request` and waits for its acknowledgement, or for the first message when `answer` is
/// given. A failure that the kernel answered leaves its error in errno.
[[nodiscard]] int ng_rtnl_send(rtnl_handle *rtnl, nlmsghdr *request, rtnl_answer *answer);
/// Sends a rule request; a rule that exists already is success.
[[nodiscard]] int ng_rtnl_rule_set(rtnl_handle *rtnl, const rtnl_rule &rule);

/// Creates a link of kind `kind`: `name`, or for a VLAN "<name>.<vid>".
[[nodiscard]] int _ng_rtnl_iface_create(unsigned kind, const char *name, uint16_t vid);
