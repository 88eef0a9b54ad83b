// The events of an nl80211 multicast group: a non-blocking socket that the main loop watches.
#include <algorithm>
#include <array>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <sys/socket.h>

#include "netlink/nl80211_internal.h"
#include "netlink/nl_handle.h"
#include "platform/zu/log.h"

/// The kernel allots as much of it as its own limit admits. Bursts of events wait here while the
/// loop is busy elsewhere.
constexpr int RECEIVE_BUFFER_SIZE = 256 * 1024;
/// A flood of events must not keep the loop from its timers: the rest is read in its next round.
constexpr int MAX_DATAGRAMS = 64;
/// Room for the numbers of this many generic netlink groups, in words of 32; there are dozens.
constexpr size_t MEMBERSHIP_WORDS = 64;

static int event_cb(nl_msg *msg, void *arg)
{
    const auto *listener = static_cast<const ng_nl80211_listener *>(arg);
    ng_nl80211_event event;
    if (!nl80211_event_read(nlmsg_hdr(msg), &event)) {
        log_warning("nl80211: event without a header ignored");
        return NL_OK;
    }
    listener->handler(&event, listener->arg);
    return NL_OK;
}

static int count_cb(nl_msg *, void *arg)
{
    static_cast<ng_nl80211_listener *>(arg)->received++;
    return NL_OK;
}

/// Events answer no request, so their sequence numbers match none. The socket's own switch does not
/// reach a callback set that is given to nl_recvmsgs().
static int any_sequence_cb(nl_msg *, void *)
{
    return NL_OK;
}

/// The group is looked up before the socket is made non-blocking and joins it, so that no event can
/// come between the question and its answer.
static int group_join(nl_sock *socket, const char *group)
{
    int result = genl_connect(socket);
    if (result < 0)
        return result;
    int id = genl_ctrl_resolve_grp(socket, NL80211_GENL_NAME, group);
    if (id < 0)
        return id;
    result = nl_socket_set_buffer_size(socket, RECEIVE_BUFFER_SIZE, 0);
    if (result < 0)
        return result;
    nl_socket_disable_seq_check(socket);
    result = nl_socket_set_nonblocking(socket);
    return result < 0 ? result : nl_socket_add_membership(socket, id);
}

static int listener_open(ng_nl80211_listener *listener, const char *group)
{
    listener->socket = nl_socket_alloc();
    listener->callbacks = nl_cb_alloc(NL_CB_DEFAULT);
    if (!listener->socket || !listener->callbacks)
        return -NLE_NOMEM;
    nl_cb_set(listener->callbacks, NL_CB_VALID, NL_CB_CUSTOM, event_cb, listener);
    nl_cb_set(listener->callbacks, NL_CB_MSG_IN, NL_CB_CUSTOM, count_cb, listener);
    nl_cb_set(listener->callbacks, NL_CB_SEQ_CHECK, NL_CB_CUSTOM, any_sequence_cb, nullptr);
    return group_join(listener->socket, group);
}

int ng_nl80211_listen_event(ng_nl80211_listener *listener, const char *group,
                            ng_nl80211_event_handler handler, void *arg)
{
    *listener = {
        .socket = nullptr, .callbacks = nullptr, .handler = handler, .arg = arg, .received = 0};
    const int result = listener_open(listener, group);
    if (result >= 0)
        return 0;
    log_error("nl80211: unable to listen to the group '%s': %s", group, nl_geterror(result));
    ng_nl80211_listen_close(listener);
    return result;
}

int ng_nl80211_listen_fd(const ng_nl80211_listener *listener)
{
    return listener->socket ? nl_socket_get_fd(listener->socket) : -1;
}

int ng_nl80211_receive_events(ng_nl80211_listener *listener)
{
    for (int datagram = 0; datagram < MAX_DATAGRAMS; datagram++) {
        const uint32_t before = listener->received;
        int result = nl_recvmsgs(listener->socket, listener->callbacks);
        // An empty socket is an error to one library and nothing to the other.
        if (result == -NLE_AGAIN)
            return 0;
        if (result < 0)
            return result;
        if (listener->received == before)
            return 0;
    }
    return 0;
}

bool ng_nl80211_listen_is_member(const ng_nl80211_listener *listener)
{
    if (!listener->socket)
        return false;
    std::array<uint32_t, MEMBERSHIP_WORDS> groups{};
    socklen_t length = sizeof groups;
    if (getsockopt(nl_socket_get_fd(listener->socket), SOL_NETLINK, NETLINK_LIST_MEMBERSHIPS,
                   groups.data(), &length) != 0)
        return true; // a kernel that does not tell
    return std::ranges::any_of(groups, [](uint32_t word) { return word != 0; });
}

void ng_nl80211_listen_close(ng_nl80211_listener *listener)
{
    nl_cb_put(listener->callbacks);
    nl_socket_free(listener->socket);
    *listener = {};
}

const char *ng_nl80211_strerror(int error)
{
    return nl_geterror(error);
}
