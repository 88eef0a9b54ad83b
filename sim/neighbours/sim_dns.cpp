// Questions in, answers out; one datagram each.
#include "sim_dns.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <strings.h>

extern "C" {
#include <libubox/uloop.h>
}

constexpr size_t HEADER_SIZE = 12;
constexpr uint16_t TYPE_A = 1;
constexpr uint8_t NO_SUCH_NAME = 3;

struct pending_answer {
    uloop_timeout timer;
    sockaddr_in client;
    size_t size;
    uint8_t packet[512];
};

static std::span<const sim_dns_host> known_hosts;
static int answer_delay_ms;
static uloop_fd server;

/// The question's name in dotted form; `end` is moved behind its type and class. "" when malformed.
static std::string question_name(std::span<const uint8_t> packet, size_t &end)
{
    std::string name;
    size_t at = HEADER_SIZE;
    while (at < packet.size() && packet[at] != 0) {
        size_t length = packet[at];
        if (length > 63 || at + 1 + length >= packet.size())
            return "";
        name.append(name.empty() ? "" : ".");
        name.append(reinterpret_cast<const char *>(&packet[at + 1]), length);
        at += 1 + length;
    }
    end = at + 5;
    return end <= packet.size() ? name : "";
}

static const sim_dns_host *find_host(const std::string &name)
{
    for (auto &host : known_hosts)
        if (strcasecmp(host.name, name.c_str()) == 0)
            return &host;
    return nullptr;
}

/// One address record that points back at the question's name.
static size_t append_address(uint8_t *at, const char *address)
{
    const uint8_t fixed[] = {0xc0, HEADER_SIZE, 0, TYPE_A, 0, 1, 0, 0, 0, 5, 0, 4};
    memcpy(at, fixed, sizeof(fixed));
    inet_pton(AF_INET, address, at + sizeof(fixed));
    return sizeof(fixed) + 4;
}

/// Turns the question in `packet` into its answer; returns the answer's size, 0 for no answer.
static size_t build_answer(uint8_t *packet, size_t size)
{
    size_t end = 0;
    std::string name = size > HEADER_SIZE ? question_name({packet, size}, end) : "";
    if (name.empty() || end + 16 > sizeof(pending_answer::packet))
        return 0;
    const sim_dns_host *host = find_host(name);
    bool address_asked = packet[end - 4] == 0 && packet[end - 3] == TYPE_A;
    uint8_t answers = host && address_asked;
    packet[2] = static_cast<uint8_t>(0x84 | (packet[2] & 1)); // an answer, authoritative
    packet[3] = static_cast<uint8_t>(0x80 | (host ? 0 : NO_SUCH_NAME));
    const uint8_t counts[] = {0, 1, 0, answers, 0, 0, 0, 0};
    memcpy(packet + 4, counts, sizeof(counts));
    return end + (answers ? append_address(packet + end, host->address) : 0);
}

static void send_answer(uloop_timeout *timer)
{
    auto *answer = reinterpret_cast<pending_answer *>(timer);
    sendto(server.fd, answer->packet, answer->size, 0,
           reinterpret_cast<sockaddr *>(&answer->client), sizeof(answer->client));
    delete answer;
}

static void question_arrived(uloop_fd *fd, unsigned)
{
    auto *answer = new pending_answer();
    socklen_t length = sizeof(answer->client);
    ssize_t size = recvfrom(fd->fd, answer->packet, sizeof(answer->packet), MSG_DONTWAIT,
                            reinterpret_cast<sockaddr *>(&answer->client), &length);
    answer->size = size > 0 ? build_answer(answer->packet, static_cast<size_t>(size)) : 0;
    if (answer->size == 0) {
        delete answer;
        return;
    }
    answer->timer.cb = send_answer;
    uloop_timeout_set(&answer->timer, answer_delay_ms);
}

int sim_dns_start(const char *address, std::span<const sim_dns_host> hosts)
{
    known_hosts = hosts;
    sockaddr_in local = {};
    local.sin_family = AF_INET;
    local.sin_port = htons(53);
    inet_pton(AF_INET, address, &local.sin_addr);
    int yes = 1;
    server.fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    server.cb = question_arrived;
    setsockopt(server.fd, IPPROTO_IP, IP_FREEBIND, &yes, sizeof(yes));
    if (bind(server.fd, reinterpret_cast<sockaddr *>(&local), sizeof(local)) != 0) {
        perror("sim_dns: cannot bind");
        return -1;
    }
    return uloop_fd_add(&server, ULOOP_READ);
}

void sim_dns_set_delay(int delay_ms)
{
    answer_delay_ms = delay_ms;
}
