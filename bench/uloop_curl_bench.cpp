// libraries: tarn_zu
// The CPU time of one internet-test cycle's transfers, 256 connections to loopback listeners,
// through libcurl on the event loop; and as a ratio to 256 bare non-blocking connects.
#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "platform/zu/uloop_curl.h"

constexpr int CONNECTIONS = 256;
constexpr int LISTENERS = 32;
constexpr int ROUNDS = 31;

struct listener {
    int fd;
    sockaddr_in address;
    std::string url;
};

static std::vector<listener> gListeners;

static void listeners_open()
{
    for (int i = 0; i < LISTENERS; i++) {
        listener l = {socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0), {}, ""};
        l.address.sin_family = AF_INET;
        l.address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof l.address;
        if (bind(l.fd, reinterpret_cast<sockaddr *>(&l.address), size) != 0 ||
            listen(l.fd, CONNECTIONS) != 0)
            abort();
        getsockname(l.fd, reinterpret_cast<sockaddr *>(&l.address), &size);
        l.url = "http://127.0.0.1:" + std::to_string(ntohs(l.address.sin_port));
        gListeners.push_back(l);
    }
}

static void listeners_drain()
{
    for (const listener &l : gListeners)
        for (int fd = accept(l.fd, nullptr, nullptr); fd >= 0; fd = accept(l.fd, nullptr, nullptr))
            close(fd);
}

static double cpu_ms()
{
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

static int gReported;

static void glue_cycle(uloop_curl_context *context)
{
    static uloop_curl_easy easies[CONNECTIONS];
    gReported = 0;
    for (int i = 0; i < CONNECTIONS; i++) {
        uloop_curl_easy *easy = &easies[i];
        easy->cb = [](uloop_curl_easy *done) {
            if (done->result != CURLE_OK)
                abort();
            uloop_curl_easy_destroy(done);
            if (++gReported == CONNECTIONS)
                uloop_end();
        };
        if (uloop_curl_easy_create(context, easy) != 0)
            abort();
        curl_easy_setopt(easy->easy, CURLOPT_CONNECTTIMEOUT_MS, 1500L);
        curl_easy_setopt(easy->easy, CURLOPT_URL, gListeners[i % LISTENERS].url.c_str());
        curl_easy_setopt(easy->easy, CURLOPT_CONNECT_ONLY, 1L);
        if (uloop_curl_easy_start(easy) != 0)
            abort();
    }
    uloop_run();
}

static void bare_cycle()
{
    const int poller = epoll_create1(EPOLL_CLOEXEC);
    std::vector<int> fds;
    for (int i = 0; i < CONNECTIONS; i++) {
        const sockaddr_in &address = gListeners[i % LISTENERS].address;
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        (void)connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
        epoll_event event = {EPOLLOUT, {.fd = fd}};
        epoll_ctl(poller, EPOLL_CTL_ADD, fd, &event);
        fds.push_back(fd);
    }
    for (int connected = 0; connected < CONNECTIONS;) {
        epoll_event events[16];
        const int count = epoll_wait(poller, events, 16, 1500);
        for (int i = 0; i < count; i++) {
            int error = 0;
            socklen_t size = sizeof error;
            getsockopt(events[i].data.fd, SOL_SOCKET, SO_ERROR, &error, &size);
            if (error != 0)
                abort();
            epoll_ctl(poller, EPOLL_CTL_DEL, events[i].data.fd, nullptr);
            connected++;
        }
    }
    for (const int fd : fds)
        close(fd);
    close(poller);
}

template <typename Cycle>
static double median_cpu_ms(Cycle cycle)
{
    std::vector<double> times;
    for (int i = 0; i < ROUNDS; i++) {
        const double start = cpu_ms();
        cycle();
        times.push_back(cpu_ms() - start);
        listeners_drain();
    }
    std::nth_element(times.begin(), times.begin() + ROUNDS / 2, times.end());
    return times[ROUNDS / 2];
}

int main()
{
    listeners_open();
    uloop_init();
    static uloop_curl_context context;
    if (uloop_curl_init(&context) != 0)
        return 1;
    const double glue = median_cpu_ms([] { glue_cycle(&context); });
    const double bare = median_cpu_ms(bare_cycle);
    printf("%d connections: %.2f ms of CPU through the glue, %.2f ms bare, ratio %.1f\n",
           CONNECTIONS, glue, bare, glue / bare);
    uloop_curl_cleanup(&context);
    uloop_done();
    return 0;
}
