// libraries: host_ubusd_core
// The broker against hostile clients: three of them send whatever the input says, in pieces, leave
// and come back. An input is a row of steps: one byte of flags (bits 0-1 the client, bit 2 it
// leaves and another takes its place, bit 3 it reads what came), one byte of length, that many
// bytes to send. Ids are random: a word 0xfffffN.. stands for the Nth id that was given out.
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "broker.h"

namespace {
constexpr size_t CLIENTS = 3;

struct hostile {
    int fd = -1;
};

hostile clients[CLIENTS];
std::vector<uint32_t> ids; // network byte order
} // namespace

// What one client sends or its leaving is one callback; a second one goes on with somebody's queue.
static void let_broker_work()
{
    (void)uloop_run_timeout(0);
    (void)uloop_run_timeout(0);
}

// Ids stand behind the headers of the attributes that carry them.
static void remember_ids(const uint32_t *words, size_t count)
{
    for (size_t i = 1; i < count; i++)
        if (words[i - 1] == htobe32(0x03000008) || words[i - 1] == htobe32(0x05000008))
            ids.push_back(words[i]);
}

static void read_answers(const hostile &client)
{
    uint32_t words[2048];
    for (ssize_t n; (n = recv(client.fd, words, sizeof(words), MSG_DONTWAIT)) > 0;)
        remember_ids(words, (size_t)n / 4);
}

static void connect_client(hostile *client)
{
    int ends[2];
    if (client->fd >= 0)
        close(client->fd);
    let_broker_work();
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) < 0)
        abort();
    // A small socket: what is not read soon waits in the broker.
    const int small = 1;
    (void)setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
    broker_client *added = client_add(ends[1], "user", "group");
    if (!added)
        abort();
    client->fd = ends[0];
    ids.push_back(htobe32(added->id));
}

static void send_bytes(const hostile &client, const uint8_t *data, size_t size)
{
    uint8_t bytes[256];
    memcpy(bytes, data, size);
    for (size_t at = 0; at + 4 <= size; at += 4) {
        const size_t n = bytes[at + 3];
        if (bytes[at] == 0xff && bytes[at + 1] == 0xff && bytes[at + 2] == 0xff && n < ids.size())
            memcpy(bytes + at, &ids[n], 4);
    }
    (void)send(client.fd, bytes, size, MSG_NOSIGNAL);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    (void)uloop_init();
    ids.clear();
    for (hostile &client : clients)
        connect_client(&client);
    while (size >= 2) {
        hostile *client = &clients[(data[0] & 3) % CLIENTS];
        const uint8_t flags = data[0];
        const size_t len = data[1] < size - 2 ? data[1] : size - 2;
        if (flags & 4)
            connect_client(client);
        send_bytes(*client, data + 2, len);
        let_broker_work();
        if (flags & 8)
            read_answers(*client);
        data += 2 + len;
        size -= 2 + len;
    }
    client_remove_all();
    if (object_find(0))
        abort();
    return 0;
}
