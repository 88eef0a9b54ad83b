// sim_internet CERTIFICATES: the internet of a simulated node, run in its own network namespace.
// Plain listeners on port 80 and TLS listeners on port 443 answer any request with "204 No
// Content"; a name server knows the hosts of HOSTS and says of all others that they do not exist.
// The file /var/sim/internet holds the mode, read at start and on SIGHUP: "on"; "refuse", nobody
// listens but the name server; "slow MS", every handshake and every name takes that long.
// Silence is not made here: whoever wants it takes the addresses away.
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libubox/uloop.h>
}

#include "sim_dns.h"

constexpr const char *MODE_FILE = "/var/sim/internet";
constexpr const char *ANSWER = "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n";

constexpr sim_dns_host HOSTS[] = {
    {"check.internet.test", "203.0.113.43"},   // TLS, a certificate the node trusts
    {"bad.internet.test", "203.0.113.44"},     // TLS, one it does not
    {"portal.internet.test", "203.0.113.80"},  // plain
    {"refused.internet.test", "203.0.113.81"}, // an address where nobody listens
    {"silent.internet.test", "203.0.113.99"},  // no such host: packets vanish
};
constexpr const char *DNS_ADDRESS = "203.0.113.53";

struct {
    bool refuse;
    int delay_ms;
} mode;

struct connection {
    uloop_fd fd = {};
    uloop_timeout start = {};
    SSL *tls = nullptr;
    ~connection()
    {
        uloop_timeout_cancel(&start);
        uloop_fd_delete(&fd);
        SSL_free(tls);
        close(fd.fd);
    }
};

struct listener {
    uloop_fd fd = {};
    std::string address;
    uint16_t port = 0;
    SSL_CTX *tls = nullptr; // null: plain
};
static std::vector<std::unique_ptr<listener>> listeners;

static void answer(connection *peer)
{
    if (peer->tls)
        SSL_write(peer->tls, ANSWER, static_cast<int>(strlen(ANSWER)));
    else if (write(peer->fd.fd, ANSWER, strlen(ANSWER)) < 0)
        perror("sim_internet: answer");
    delete peer;
}

static void plain_readable(uloop_fd *fd, unsigned)
{
    auto *peer = reinterpret_cast<connection *>(fd);
    char request[4096];
    if (read(fd->fd, request, sizeof(request)) > 0)
        answer(peer);
    else
        delete peer;
}

static void tls_ready(uloop_fd *fd, unsigned)
{
    auto *peer = reinterpret_cast<connection *>(fd);
    char request[4096];
    // The first read does the handshake.
    int result = SSL_read(peer->tls, request, static_cast<int>(sizeof(request)));
    if (result > 0) {
        answer(peer);
        return;
    }
    int error = SSL_get_error(peer->tls, result);
    if (error == SSL_ERROR_WANT_WRITE)
        uloop_fd_add(fd, ULOOP_READ | ULOOP_WRITE);
    else if (error != SSL_ERROR_WANT_READ)
        delete peer;
}

static void start_talking(uloop_timeout *timer)
{
    auto *peer = container_of(timer, connection, start);
    uloop_fd_add(&peer->fd, ULOOP_READ);
}

static void accept_connection(uloop_fd *fd, unsigned)
{
    auto *from = reinterpret_cast<listener *>(fd);
    int accepted = accept4(fd->fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (accepted < 0)
        return;
    auto *peer = new connection();
    peer->fd.fd = accepted;
    peer->fd.cb = from->tls ? tls_ready : plain_readable;
    peer->start.cb = start_talking;
    if (from->tls) {
        peer->tls = SSL_new(from->tls);
        SSL_set_fd(peer->tls, accepted);
        SSL_set_accept_state(peer->tls);
    }
    uloop_timeout_set(&peer->start, mode.delay_ms);
}

static void open_listener(listener &wanted)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(wanted.port);
    inet_pton(AF_INET, wanted.address.c_str(), &address.sin_addr);
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    setsockopt(fd, IPPROTO_IP, IP_FREEBIND, &yes, sizeof(yes));
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(fd, 512) != 0) {
        fprintf(stderr, "sim_internet: cannot listen on %s:%d: %m\n", wanted.address.c_str(),
                wanted.port);
        exit(1);
    }
    wanted.fd.fd = fd;
    wanted.fd.cb = accept_connection;
    uloop_fd_add(&wanted.fd, ULOOP_READ);
}

static void close_listener(listener &open)
{
    uloop_fd_delete(&open.fd);
    close(open.fd.fd);
    open.fd.fd = -1;
}

static void apply_mode()
{
    std::string word;
    std::ifstream file(MODE_FILE);
    mode = {};
    file >> word;
    mode.refuse = word == "refuse";
    if (word == "slow" && !(file >> mode.delay_ms))
        mode.delay_ms = 1000;
    sim_dns_set_delay(mode.delay_ms);
    for (auto &each : listeners) {
        if (mode.refuse && each->fd.fd >= 0)
            close_listener(*each);
        else if (!mode.refuse && each->fd.fd < 0)
            open_listener(*each);
    }
}

static void hangup_seen(uloop_fd *fd, unsigned)
{
    signalfd_siginfo info;
    while (read(fd->fd, &info, sizeof(info)) > 0)
        apply_mode();
}

static void watch_hangups()
{
    static uloop_fd hangups;
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGHUP);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    hangups.fd = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    hangups.cb = hangup_seen;
    uloop_fd_add(&hangups, ULOOP_READ);
}

static SSL_CTX *load_certificate(const std::string &folder, const char *name)
{
    SSL_CTX *ctx = SSL_CTX_new(TLS_server_method());
    std::string base = folder + "/" + name;
    if (!ctx || SSL_CTX_use_certificate_file(ctx, (base + ".pem").c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_use_PrivateKey_file(ctx, (base + ".key").c_str(), SSL_FILETYPE_PEM) != 1) {
        fprintf(stderr, "sim_internet: no usable certificate %s.pem\n", base.c_str());
        exit(1);
    }
    return ctx;
}

static void add_listener(const char *address, uint16_t port, SSL_CTX *tls)
{
    listeners.push_back(std::make_unique<listener>());
    listener &added = *listeners.back();
    added.fd.fd = -1;
    added.address = address;
    added.port = port;
    added.tls = tls;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: sim_internet CERTIFICATES\n");
        return 2;
    }
    uloop_init();
    watch_hangups();
    add_listener("203.0.113.43", 443, load_certificate(argv[1], "good"));
    add_listener("203.0.113.44", 443, load_certificate(argv[1], "bad"));
    add_listener("203.0.113.80", 80, nullptr);
    if (sim_dns_start(DNS_ADDRESS, HOSTS) != 0)
        return 1;
    apply_mode();
    uloop_run();
    uloop_done();
    return 0;
}
