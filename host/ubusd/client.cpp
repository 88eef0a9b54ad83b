// Clients: their sockets, the message that is coming in, and the queue of those going out.
// A client is only removed from its own socket's callback, so that whoever sends to others while
// handling a message may keep pointers to them.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <unordered_map>

#include "broker.h"

// What may wait for a client beyond its socket's buffer. More is dropped.
constexpr size_t MAX_QUEUED = 1048576;
// Messages of one client that are handled before others get their turn.
constexpr int MESSAGES_PER_TURN = 64;

static std::unordered_map<uint32_t, std::unique_ptr<broker_client>> clients;

broker_client *client_find(uint32_t id)
{
    const auto found = clients.find(id);
    return found == clients.end() ? nullptr : found->second.get();
}

// Sending.

static void drop_queue(broker_client *client)
{
    for (broker_outgoing &out : client->queue)
        wire_close(&out.fd);
    client->queue.clear();
    client->queued_bytes = 0;
}

/// Nothing more can be sent; the hang-up leads to the removal.
static void break_off(broker_client *client)
{
    client->gone = true;
    drop_queue(client);
    shutdown(client->sock.u.fd, SHUT_RDWR);
}

static void watch(broker_client *client)
{
    const unsigned events = client->queue.empty() ? ULOOP_READ : ULOOP_READ | ULOOP_WRITE;
    if ((client->sock.u.flags & ULOOP_EVENT_MASK) != events || !client->sock.u.registered)
        (void)uloop_fd_add(&client->sock.u, events);
}

/// Queues what is left of a message after `sent` bytes. A begun message must go on, whatever its
/// size.
static void enqueue(broker_client *client, const ubus_msghdr &hdr, const blob_attr *msg,
                    size_t sent, int fd)
{
    const size_t left = wire_size(msg) - sent;
    if (!sent && client->queued_bytes + left > MAX_QUEUED)
        return;
    wire_blob copy(blob_memdup(msg));
    if (!copy) {
        break_off(client);
        return;
    }
    const int own_fd = !sent && fd >= 0 ? fcntl(fd, F_DUPFD_CLOEXEC, 0) : -1;
    client->queue.push_back({hdr, std::move(copy), sent, own_fd});
    client->queued_bytes += left;
    watch(client);
}

void client_send(broker_client *client, const ubus_msghdr &hdr, const blob_attr *msg, int fd)
{
    if (client->gone)
        return;
    monitor_copy(client, hdr, msg, true);
    ubus_msghdr wire = wire_header(hdr.type, hdr.seq, hdr.peer);
    wire.version = hdr.version;
    ssize_t sent = 0;
    if (client->queue.empty())
        sent = wire_send(client->sock.u.fd, wire, msg, 0, fd);
    if (sent < 0)
        break_off(client);
    else if ((size_t)sent < wire_size(msg))
        enqueue(client, wire, msg, (size_t)sent, fd);
}

void client_post(broker_client *client, ubus_msg_type type, uint16_t seq, uint32_t peer,
                 const blob_attr *msg, int fd)
{
    ubus_msghdr hdr{};
    hdr.type = (uint8_t)type;
    hdr.seq = seq;
    hdr.peer = peer;
    client_send(client, hdr, msg, fd);
}

/// False when the socket takes nothing more for now.
static bool send_first(broker_client *client)
{
    broker_outgoing &out = client->queue.front();
    const ssize_t n = wire_send(client->sock.u.fd, out.hdr, out.msg.get(), out.sent, out.fd);
    if (n < 0)
        break_off(client);
    if (n <= 0)
        return false;
    wire_close(&out.fd);
    out.sent += (size_t)n;
    client->queued_bytes -= (size_t)n;
    if (out.sent < wire_size(out.msg.get()))
        return false;
    client->queue.pop_front();
    return true;
}

static void flush(broker_client *client)
{
    while (!client->queue.empty() && send_first(client))
        ;
    if (client->queue.empty() && !client->gone)
        lookup_resume(client);
    if (!client->gone)
        watch(client);
}

// Receiving.

/// Reads into the unfinished message. 1: got all of `want`, 0: not yet, -1: the stream has ended.
static int receive_part(broker_client *client, char *part, size_t begin, size_t want)
{
    while (client->received < begin + want) {
        const size_t got = client->received - begin;
        const ssize_t n = wire_recv(client->sock.u.fd, part + got, want - got, &client->fd);
        if (n <= 0)
            return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : -1;
        client->received += (size_t)n;
    }
    return 1;
}

/// As receive_part(), for a whole message.
static int receive_message(broker_client *client)
{
    const int head = receive_part(client, (char *)&client->head, 0, sizeof(client->head));
    if (head <= 0)
        return head;
    const auto *root = (const blob_attr *)&client->head.root;
    if (blob_raw_len(root) < sizeof(*root) || blob_pad_len(root) > WIRE_MAX_BLOB)
        return -1;
    if (!client->msg) {
        client->msg.reset((blob_attr *)malloc(blob_pad_len(root)));
        if (!client->msg)
            return -1;
        client->msg->id_len = client->head.root;
    }
    return receive_part(client, client->msg->data, sizeof(client->head), blob_len(root));
}

/// False when the client is to be removed.
static bool read_messages(broker_client *client, int limit)
{
    for (int i = 0; limit < 0 || i < limit; i++) {
        const int state = receive_message(client);
        if (state <= 0)
            return state == 0;
        const wire_blob msg = std::move(client->msg);
        client->received = 0;
        message_handle(client, wire_to_host(client->head.hdr), msg.get(), client->fd);
        wire_close(&client->fd);
    }
    return true;
}

static void client_remove(broker_client *client)
{
    client->gone = true;
    drop_queue(client);
    monitor_forget(client);
    object_remove_all(client);
    (void)uloop_fd_delete(&client->sock.u);
    close(client->sock.u.fd);
    wire_close(&client->fd);
    clients.erase(client->id);
}

static void client_cb(uloop_fd *u, unsigned events)
{
    broker_client *client = container_of(u, broker_socket, u)->client;
    // After a hang-up there is no further call: everything is read now.
    const bool hung_up = !u->registered;
    if (events & ULOOP_WRITE)
        flush(client);
    if (!read_messages(client, hung_up ? -1 : MESSAGES_PER_TURN) || hung_up)
        client_remove(client);
}

broker_client *client_add(int fd, const broker_peer &peer)
{
    auto client = std::make_unique<broker_client>();
    do {
        client->id = id_draw();
    } while (client_find(client->id));
    client->user = peer.user;
    client->groups = peer.groups;
    client->group = peer.groups.front();
    client->trusted = peer.trusted;
    client->fd = -1;
    client->sock.client = client.get();
    client->sock.u.fd = fd;
    client->sock.u.cb = client_cb;
    if (uloop_fd_add(&client->sock.u, ULOOP_READ) < 0) {
        close(fd);
        return nullptr;
    }
    wire_buf hello;
    client_post(client.get(), UBUS_MSG_HELLO, 0, client->id, hello.msg());
    return (clients[client->id] = std::move(client)).get();
}

void client_remove_all()
{
    while (!clients.empty())
        client_remove(clients.begin()->second.get());
}
