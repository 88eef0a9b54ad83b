// Frames of the bus: how they are read, written and taken apart.
#include "wire.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

static blob_attr_info attr_of(unsigned type)
{
    blob_attr_info info{};
    info.type = type;
    return info;
}

wire_attrs wire_parse(blob_attr *msg)
{
    static const std::array<blob_attr_info, UBUS_ATTR_MAX> INFO = {
        attr_of(BLOB_ATTR_UNSPEC), // UBUS_ATTR_UNSPEC
        attr_of(BLOB_ATTR_INT32),  // UBUS_ATTR_STATUS
        attr_of(BLOB_ATTR_STRING), // UBUS_ATTR_OBJPATH
        attr_of(BLOB_ATTR_INT32),  // UBUS_ATTR_OBJID
        attr_of(BLOB_ATTR_STRING), // UBUS_ATTR_METHOD
        attr_of(BLOB_ATTR_INT32),  // UBUS_ATTR_OBJTYPE
        attr_of(BLOB_ATTR_NESTED), // UBUS_ATTR_SIGNATURE
        attr_of(BLOB_ATTR_NESTED), // UBUS_ATTR_DATA
        attr_of(BLOB_ATTR_INT32),  // UBUS_ATTR_TARGET
        attr_of(BLOB_ATTR_INT8),   // UBUS_ATTR_ACTIVE
        attr_of(BLOB_ATTR_INT8),   // UBUS_ATTR_NO_REPLY
        attr_of(BLOB_ATTR_NESTED), // UBUS_ATTR_SUBSCRIBERS
        attr_of(BLOB_ATTR_STRING), // UBUS_ATTR_USER
        attr_of(BLOB_ATTR_STRING), // UBUS_ATTR_GROUP
    };
    wire_attrs attrs{};
    if (msg)
        (void)blob_parse_untrusted(msg, blob_raw_len(msg), attrs.data(), INFO.data(),
                                   UBUS_ATTR_MAX);
    return attrs;
}

ubus_msghdr wire_header(uint8_t type, uint16_t seq, uint32_t peer)
{
    ubus_msghdr hdr{};
    hdr.type = type;
    hdr.seq = cpu_to_be16(seq);
    hdr.peer = cpu_to_be32(peer);
    return hdr;
}

ubus_msghdr wire_to_host(ubus_msghdr hdr)
{
    hdr.seq = be16_to_cpu(hdr.seq);
    hdr.peer = be32_to_cpu(hdr.peer);
    return hdr;
}

size_t wire_size(const blob_attr *msg)
{
    return sizeof(ubus_msghdr) + blob_raw_len(msg);
}

/// Puts one descriptor into the control area of `out`.
static void attach_fd(msghdr *out, void *control, size_t control_len, int fd)
{
    memset(control, 0, control_len);
    out->msg_control = control;
    out->msg_controllen = control_len;
    cmsghdr *c = CMSG_FIRSTHDR(out);
    c->cmsg_level = SOL_SOCKET;
    c->cmsg_type = SCM_RIGHTS;
    c->cmsg_len = CMSG_LEN(sizeof(fd));
    memcpy(CMSG_DATA(c), &fd, sizeof(fd));
}

ssize_t wire_send(int sock, const ubus_msghdr &hdr, const blob_attr *msg, size_t offset, int fd)
{
    const size_t in_header = offset < sizeof(hdr) ? offset : sizeof(hdr);
    const size_t in_blob = offset - in_header;
    iovec parts[2] = {
        {(char *)&hdr + in_header, sizeof(hdr) - in_header},
        {(char *)msg + in_blob, blob_raw_len(msg) - in_blob},
    };
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr out{};
    out.msg_iov = parts;
    out.msg_iovlen = 2;
    if (fd >= 0)
        attach_fd(&out, control, sizeof(control), fd);
    for (;;) {
        const ssize_t n = sendmsg(sock, &out, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0)
            return n;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return 0;
        if (errno != EINTR)
            return -1;
    }
}

/// Keeps the last descriptor of the control data and closes all others.
static void receive_fds(msghdr *in, int *fd)
{
    for (cmsghdr *c = CMSG_FIRSTHDR(in); c; c = CMSG_NXTHDR(in, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS)
            continue;
        const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; i++) {
            wire_close(fd);
            memcpy(fd, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
        }
    }
}

ssize_t wire_recv(int sock, void *data, size_t len, int *fd)
{
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    iovec part = {data, len};
    msghdr in{};
    in.msg_iov = &part;
    in.msg_iovlen = 1;
    in.msg_control = control;
    in.msg_controllen = sizeof(control);
    ssize_t n;
    do {
        n = recvmsg(sock, &in, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    if (n >= 0)
        receive_fds(&in, fd);
    return n;
}

void wire_close(int *fd)
{
    if (*fd >= 0)
        close(*fd);
    *fd = -1;
}

bool wire_address(sockaddr_un *address, const char *path)
{
    const size_t len = strlen(path);
    *address = {};
    address->sun_family = AF_UNIX;
    if (len >= sizeof(address->sun_path))
        return false;
    memcpy(address->sun_path, path, len);
    return true;
}

void wire_put_data(blob_buf *b, const blob_attr *msg)
{
    blob_put(b, UBUS_ATTR_DATA, msg ? blob_data(msg) : nullptr, msg ? (unsigned)blob_len(msg) : 0);
}
