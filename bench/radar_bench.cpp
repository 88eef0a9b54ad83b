// libraries: tarn_daemon
// A thousand radar events in the listener's socket: read and thrown away by the netlink library
// alone, taken apart by the listener, and handled (without a bus, on which each is one event more).
// Only reading counts. Runs in a network namespace that it makes for itself, in which this program
// plays the kernel.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <linux/genetlink.h>
#include <linux/nl80211.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include "netlink/nl80211.h"
#include "platform/zu/log.h"
#include "wifi/radio/radio_internal.h"

constexpr int EVENTS = 1000;

/// Where the family is missing, as here, its group is one that every kernel has.
extern "C" int genl_ctrl_resolve_grp(nl_sock *, const char *, const char *)
{
    return 16;
}

/// An attribute that holds a number.
struct number {
    nlattr header;
    uint32_t value;
};

struct radar_message {
    nlmsghdr netlink = {sizeof(radar_message), 0x21, 0, 0, 0};
    genlmsghdr generic = {NL80211_CMD_RADAR_DETECT, 1, 0};
    number wiphy = {{sizeof(number), NL80211_ATTR_WIPHY}, 0};
    number event = {{sizeof(number), NL80211_ATTR_RADAR_EVENT}, NL80211_RADAR_CAC_ABORTED};
    number frequency = {{sizeof(number), NL80211_ATTR_WIPHY_FREQ}, 5260};
    number width = {{sizeof(number), NL80211_ATTR_CHANNEL_WIDTH}, NL80211_CHAN_WIDTH_20};
    number center = {{sizeof(number), NL80211_ATTR_CENTER_FREQ1}, 5260};
};

static void send_events(int to)
{
    const int room = 16 << 20;
    setsockopt(to, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    sockaddr_nl address{};
    socklen_t length = sizeof address;
    getsockname(to, reinterpret_cast<sockaddr *>(&address), &length);
    const int from = socket(AF_NETLINK, SOCK_RAW, NETLINK_GENERIC);
    const radar_message message;
    for (int i = 0; i < EVENTS; i++)
        if (sendto(from, &message, sizeof message, 0, reinterpret_cast<sockaddr *>(&address),
                   sizeof address) != sizeof message)
            perror("radar_bench: send");
    close(from);
}

static double cpu_s()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// Calls `read` until it has `count` of them.
template <typename reader>
static void measure(benchmark::State &state, int to, reader read)
{
    for (auto _ : state) {
        send_events(to);
        const double began = cpu_s();
        for (int rounds = 0, count = 0; count < EVENTS; rounds++) {
            count += read();
            if (rounds == EVENTS) {
                state.SkipWithError("events are missing");
                return;
            }
        }
        state.SetIterationTime(cpu_s() - began);
    }
}

static int gCount;

static void bare(benchmark::State &state)
{
    nl_sock *socket = nl_socket_alloc();
    genl_connect(socket);
    nl_socket_disable_seq_check(socket);
    nl_socket_set_nonblocking(socket);
    nl_socket_modify_cb(
        socket, NL_CB_VALID, NL_CB_CUSTOM,
        [](nl_msg *, void *) -> int {
            gCount++;
            return NL_OK;
        },
        nullptr);
    measure(state, nl_socket_get_fd(socket), [socket] {
        const int before = gCount;
        nl_recvmsgs_default(socket);
        return gCount - before;
    });
    nl_socket_free(socket);
}
BENCHMARK(bare)->UseManualTime();

static void listen(benchmark::State &state, ng_nl80211_event_handler handler)
{
    ng_nl80211_listener listener{};
    if (ng_nl80211_listen_event(&listener, "mlme", handler, nullptr) != 0) {
        state.SkipWithError("no listener");
        return;
    }
    measure(state, ng_nl80211_listen_fd(&listener), [&listener] {
        const uint32_t before = listener.received;
        (void)ng_nl80211_receive_events(&listener);
        return static_cast<int>(listener.received - before);
    });
    ng_nl80211_listen_close(&listener);
}
BENCHMARK_CAPTURE(listen, taken_apart, [](const ng_nl80211_event *, void *) {})->UseManualTime();
BENCHMARK_CAPTURE(listen, handled, channel_switch_event_cb)->UseManualTime();

int main(int argc, char **argv)
{
    if (unshare(CLONE_NEWNET) < 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) < 0) {
        fputs("radar_bench: this machine forbids network namespaces: skipped\n", stderr);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
