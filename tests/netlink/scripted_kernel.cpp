// The functions of the C library that the script stands in for; see scripted_kernel.h.
#include "netlink/scripted_kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>

static scripted_kernel *gKernel;

scripted_kernel::scripted_kernel()
{
    gKernel = this;
}

scripted_kernel::~scripted_kernel()
{
    gKernel = nullptr;
}

void scripted_kernel::answer(const std::vector<bytes> &datagrams)
{
    for (const bytes &datagram : datagrams)
        answers.push_back({.datagram = datagram});
}

static nlmsghdr *header_of(bytes &data, size_t offset)
{
    return reinterpret_cast<nlmsghdr *>(data.data() + offset);
}

/// Makes the messages answers to `request`.
static void address(bytes &datagram, uint32_t port, uint32_t seq)
{
    for (size_t at = 0; at + sizeof(nlmsghdr) <= datagram.size();) {
        nlmsghdr header;
        memcpy(&header, datagram.data() + at, sizeof header);
        if (header.nlmsg_pid == 0)
            header.nlmsg_pid = port;
        if (header.nlmsg_seq == 0)
            header.nlmsg_seq = seq;
        memcpy(datagram.data() + at, &header, sizeof header);
        if (header.nlmsg_len < sizeof header || header.nlmsg_len > datagram.size())
            return;
        at += NLMSG_ALIGN(header.nlmsg_len);
    }
}

static uint32_t port_of(int fd)
{
    sockaddr_nl local = {};
    socklen_t length = sizeof local;
    getsockname(fd, reinterpret_cast<sockaddr *>(&local), &length);
    return local.nl_pid;
}

/// A family that has one group.
static bytes family(const std::string &name, uint16_t flags)
{
    bytes group = attr(1, join({attr_u32(CTRL_ATTR_MCAST_GRP_ID, scripted_kernel::GROUP),
                                attr_text(CTRL_ATTR_MCAST_GRP_NAME, "mlme")}));
    return generic_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY,
                           join({attr_text(CTRL_ATTR_FAMILY_NAME, name),
                                 attr_u16(CTRL_ATTR_FAMILY_ID, scripted_kernel::FAMILY),
                                 attr(CTRL_ATTR_MCAST_GROUPS, group)}),
                           flags);
}

/// A family look-up is answered at once: libnl-3 asks for one by its name, libnl-tiny has all of
/// them listed.
static void family_answer(const bytes &request)
{
    std::vector<bytes> said;
    nlmsghdr header;
    memcpy(&header, request.data(), sizeof header);
    if ((header.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP) {
        if (gKernel->families_known)
            said = {family("batadv", NLM_F_MULTI), family("nl80211", NLM_F_MULTI)};
        said.push_back(done_message(0));
    } else if (gKernel->families_known) {
        const auto *attribute =
            reinterpret_cast<const nlattr *>(request.data() + NLMSG_HDRLEN + GENL_HDRLEN);
        said = {family(reinterpret_cast<const char *>(attribute + 1), 0), error_message(0)};
    } else {
        said = {error_message(-ENOENT)};
    }
    for (auto datagram = said.rbegin(); datagram != said.rend(); ++datagram)
        gKernel->answers.push_front({.datagram = *datagram});
}

/// Of the last socket. The number of the look-up family is that of RTM_NEWLINK on a route socket.
static int gProtocol;

/// An emulator of another machine may know route sockets alone: any will do where the script
/// answers.
extern "C" int socket(int domain, int type, int protocol) noexcept
{
    using function = int (*)(int, int, int);
    static const auto real = (function)dlsym(RTLD_NEXT, "socket");
    if (domain == AF_NETLINK)
        gProtocol = protocol;
    const int fd = real(domain, type, protocol);
    return fd < 0 && domain == AF_NETLINK ? real(domain, type, NETLINK_ROUTE) : fd;
}

static uint32_t gRequest_seq;

extern "C" ssize_t sendmsg(int fd, const msghdr *msg, int flags)
{
    if (!gKernel)
        return syscall(SYS_sendmsg, fd, msg, flags);
    if (gKernel->send_error) {
        errno = gKernel->send_error;
        return -1;
    }
    bytes request;
    for (size_t i = 0; i < msg->msg_iovlen; i++) {
        const auto *part = static_cast<const uint8_t *>(msg->msg_iov[i].iov_base);
        request.insert(request.end(), part, part + msg->msg_iov[i].iov_len);
    }
    gRequest_seq = header_of(request, 0)->nlmsg_seq;
    if (gProtocol == NETLINK_GENERIC && header_of(request, 0)->nlmsg_type == GENL_ID_CTRL)
        family_answer(request);
    else
        gKernel->requests.push_back(request);
    return (ssize_t)request.size();
}

static ssize_t deliver(scripted_answer &answer, msghdr *msg, int fd, int flags)
{
    address(answer.datagram, port_of(fd), gRequest_seq);
    const iovec &room = msg->msg_iov[0];
    size_t size = std::min(answer.datagram.size(), room.iov_len);
    std::copy_n(answer.datagram.data(), size, static_cast<uint8_t *>(room.iov_base));
    sockaddr_nl sender = {};
    sender.nl_family = AF_NETLINK;
    sender.nl_pid = answer.sender_port;
    memcpy(msg->msg_name, &sender, std::min<size_t>(sizeof sender, msg->msg_namelen));
    msg->msg_namelen = answer.sender_length;
    msg->msg_controllen = 0;
    msg->msg_flags = answer.truncated || size < answer.datagram.size() ? MSG_TRUNC : 0;
    return (ssize_t)(flags & MSG_TRUNC ? answer.datagram.size() : size);
}

extern "C" ssize_t recvmsg(int fd, msghdr *msg, int flags)
{
    if (!gKernel)
        return syscall(SYS_recvmsg, fd, msg, flags);
    gKernel->receives++;
    if (gKernel->answers.empty()) {
        errno = gKernel->empty_error;
        return -1;
    }
    scripted_answer answer = gKernel->answers.front();
    if (!(flags & MSG_PEEK) || answer.error)
        gKernel->answers.pop_front();
    if (answer.error) {
        errno = answer.error;
        return -1;
    }
    return deliver(answer, msg, fd, flags);
}

#if defined(__TIMESIZE) && __TIMESIZE == 32
// Where seconds are counted in 64 bits by request, these two have other names in a program than in
// a library that did not ask.
extern "C" ssize_t sendmsg_32(int fd, const msghdr *msg, int flags) __asm__("sendmsg");
extern "C" ssize_t sendmsg_32(int fd, const msghdr *msg, int flags)
{
    return sendmsg(fd, msg, flags);
}
extern "C" ssize_t recvmsg_32(int fd, msghdr *msg, int flags) __asm__("recvmsg");
extern "C" ssize_t recvmsg_32(int fd, msghdr *msg, int flags)
{
    return recvmsg(fd, msg, flags);
}
#endif

extern "C" unsigned if_nametoindex(const char *name) noexcept
{
    if (!gKernel) {
        using function = unsigned (*)(const char *);
        static const auto real = (function)dlsym(RTLD_NEXT, "if_nametoindex");
        return real(name);
    }
    auto found = gKernel->interfaces.find(name);
    if (found != gKernel->interfaces.end())
        return found->second;
    errno = ENODEV;
    return 0;
}

extern "C" unsigned sleep(unsigned seconds)
{
    gKernel->slept_s += seconds;
    return 0;
}

extern "C" int usleep(useconds_t microseconds)
{
    gKernel->slept_us += microseconds;
    return 0;
}
