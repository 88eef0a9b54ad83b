// The route netlink socket: opened for one request, closed after its answer. Requests are
// made in rtnl_message.cpp, answers read in rtnl_datagram.cpp.
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <unistd.h>

#include "netlink/rtnl_internal.h"
#include "platform/zu/log.h"

constexpr int SEND_BUFFER_SIZE = 17408;
constexpr int RECEIVE_BUFFER_SIZE = 9216;

static int buffers_set(int fd)
{
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER_SIZE, sizeof SEND_BUFFER_SIZE) < 0) {
        log_error("SO_SNDBUF: %s", strerror(errno));
        return -1;
    }
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER_SIZE, sizeof RECEIVE_BUFFER_SIZE) <
        0) {
        log_error("SO_RCVBUF: %s", strerror(errno));
        return -1;
    }
    return 0;
}

/// Binds to a port of the kernel's choice and reads back which.
static int local_bind(rtnl_handle *rtnl, uint32_t subscriptions)
{
    rtnl->local.nl_family = AF_NETLINK;
    rtnl->local.nl_groups = subscriptions;
    auto *local = reinterpret_cast<sockaddr *>(&rtnl->local);
    socklen_t length = sizeof rtnl->local;
    if (bind(rtnl->fd, local, length) < 0) {
        log_error("cannot bind netlink socket: %s", strerror(errno));
        return -1;
    }
    if (getsockname(rtnl->fd, local, &length) < 0) {
        log_error("cannot getsockname: %s", strerror(errno));
        return -1;
    }
    if (length != sizeof rtnl->local) {
        log_error("wrong address length %d", static_cast<int>(length));
        return -1;
    }
    if (rtnl->local.nl_family != AF_NETLINK) {
        log_error("wrong address family %d", rtnl->local.nl_family);
        return -1;
    }
    return 0;
}

int ng_rtnl_open(rtnl_handle *rtnl, uint32_t subscriptions)
{
    if (!rtnl) {
        log_error("%s is NULL", "rtnl");
        return -1;
    }
    *rtnl = {};
    rtnl->fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (rtnl->fd < 0) {
        log_error("cannot open netlink socket");
        return -1;
    }
    if (buffers_set(rtnl->fd) < 0 || local_bind(rtnl, subscriptions) < 0) {
        ng_rtnl_close(rtnl);
        return -1;
    }
    rtnl->seq = static_cast<uint32_t>(time(nullptr));
    return 0;
}

void ng_rtnl_close(rtnl_handle *rtnl)
{
    if (!rtnl) {
        log_error("%s is NULL", "rtnl");
        return;
    }
    int error = errno;
    if (rtnl->fd >= 0)
        close(rtnl->fd);
    rtnl->fd = -1;
    errno = error;
}

static int request_send(rtnl_handle *rtnl, nlmsghdr *request)
{
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    iovec part = {.iov_base = request, .iov_len = request->nlmsg_len};
    msghdr message = {};
    message.msg_name = &kernel;
    message.msg_namelen = sizeof kernel;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (sendmsg(rtnl->fd, &message, 0) < 0) {
        log_error("cannot talk to rtnetlink: %s", strerror(errno));
        return -1;
    }
    return 0;
}

/// Receives one datagram into `buffer`. -1 on failure (logged).
static int datagram_receive(const rtnl_handle *rtnl, rtnl_answer *buffer, rtnl_datagram *datagram)
{
    sockaddr_nl sender = {};
    iovec part = {.iov_base = buffer->bytes.data(), .iov_len = buffer->bytes.size()};
    msghdr message = {};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &part;
    message.msg_iovlen = 1;

    ssize_t size;
    do {
        message.msg_namelen = sizeof sender;
        size = recvmsg(rtnl->fd, &message, 0);
    } while (size < 0 && (errno == EINTR || errno == EAGAIN));

    if (size < 0) {
        log_error("netlink received error %s", strerror(errno));
        return -1;
    }
    if (size == 0) {
        log_error("EOF on netlink");
        return -1;
    }
    if (message.msg_namelen != sizeof sender) {
        log_error("sender address length == %d", static_cast<int>(message.msg_namelen));
        return -1;
    }
    *datagram = {.bytes = std::span(buffer->bytes).first(static_cast<size_t>(size)),
                 .sender_port = sender.nl_pid,
                 .truncated = (message.msg_flags & MSG_TRUNC) != 0};
    return 0;
}

int ng_rtnl_send(rtnl_handle *rtnl, nlmsghdr *request, rtnl_answer *answer)
{
    if (!rtnl || !request) {
        log_error("%s is NULL", rtnl ? "request" : "rtnl");
        return -1;
    }
    request->nlmsg_seq = ++rtnl->seq;
    if (!answer)
        request->nlmsg_flags |= NLM_F_ACK;
    if (request_send(rtnl, request) < 0)
        return -1;

    const rtnl_expected expected = {.port = rtnl->local.nl_pid, .seq = rtnl->seq};
    rtnl_answer buffer = {};
    rtnl_verdict verdict = RTNL_WAITING;
    while (verdict == RTNL_WAITING) {
        rtnl_datagram datagram;
        if (datagram_receive(rtnl, &buffer, &datagram) < 0)
            return -1;
        verdict = rtnl_datagram_read(datagram, expected, answer);
    }
    return verdict == RTNL_ANSWERED ? 0 : -1;
}
