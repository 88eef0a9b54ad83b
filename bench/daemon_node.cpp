// libraries: host_ubus host_uci openwrt::nl
// Calls of the running daemon, timed inside its node: a dump_state next to a process that has its
// reply ready made and for the rest asks the same of the same libraries. The wired dump reads at
// each call what it shows of the configuration, the wireless one asks the kernel for its radios,
// which it has none of here. Started by daemon.whole.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <libubus.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <sys/prctl.h>
#include <uci.h>
#include <unistd.h>
#include <vector>

constexpr int CALLS = 300;
constexpr int LIMIT_MS = 5000;

struct bus_method {
    const char *object;
    const char *name;
};

constexpr std::array<bus_method, 4> METHODS = {{
    {"qnet.wired", "dump_state"},
    {"floor", "wired"},
    {"qnet.wifi", "dump_state"},
    {"floor", "wifi"},
}};

// ---- the other process

static blob_attr *wired_reply, *wifi_reply;

static void keep_reply_cb(ubus_request *request, int, blob_attr *reply)
{
    *static_cast<blob_attr **>(request->priv) = blob_memdup(reply);
}

static bool keep_reply(ubus_context *ctx, const bus_method &method, blob_attr **reply)
{
    uint32_t id = 0;
    blob_buf none{};
    blob_buf_init(&none, 0);
    const bool kept =
        ubus_lookup_id(ctx, method.object, &id) == 0 &&
        ubus_invoke(ctx, id, method.name, none.head, keep_reply_cb, reply, LIMIT_MS) == 0 && *reply;
    blob_buf_free(&none);
    return kept;
}

static int wired_cb(ubus_context *ctx, ubus_object *, ubus_request_data *request, const char *,
                    blob_attr *)
{
    uci_context *uci = uci_alloc_context();
    uci_package *package = nullptr;
    for (const char *name : {"tarn_net", "igmpproxy"})
        if (uci_load(uci, name, &package) != UCI_OK)
            return UBUS_STATUS_UNKNOWN_ERROR;
    uci_free_context(uci);
    return ubus_send_reply(ctx, request, wired_reply);
}

static int wifi_cb(ubus_context *ctx, ubus_object *, ubus_request_data *request, const char *,
                   blob_attr *)
{
    nl_sock *socket = nl_socket_alloc();
    if (!socket || genl_connect(socket) < 0)
        return UBUS_STATUS_UNKNOWN_ERROR;
    (void)genl_ctrl_resolve(socket, "nl80211");
    nl_socket_free(socket);
    return ubus_send_reply(ctx, request, wifi_reply);
}

static void run_floor()
{
    static const ubus_method methods[] = {
        UBUS_METHOD_NOARG("wired", wired_cb),
        UBUS_METHOD_NOARG("wifi", wifi_cb),
    };
    static ubus_object_type type = UBUS_OBJECT_TYPE("floor", methods);
    static ubus_object object;
    object.name = "floor";
    object.type = &type;
    object.methods = methods;
    object.n_methods = ARRAY_SIZE(methods);
    uloop_init();
    ubus_context *ctx = ubus_connect(nullptr);
    if (!ctx || !keep_reply(ctx, METHODS[0], &wired_reply) ||
        !keep_reply(ctx, METHODS[2], &wifi_reply))
        return;
    ubus_add_uloop(ctx);
    if (ubus_add_object(ctx, &object) == 0)
        (void)uloop_run();
}

// ---- the caller

/// Median round trip in microseconds, or a negative bus status.
static double time_method(ubus_context *ctx, const bus_method &method)
{
    uint32_t id = 0;
    for (int i = 0; i < 1000 && ubus_lookup_id(ctx, method.object, &id) != 0; i++)
        usleep(1000);
    blob_buf args{};
    blob_buf_init(&args, 0);
    std::vector<double> times;
    for (int i = 0; i < CALLS; i++) {
        const auto start = std::chrono::steady_clock::now();
        const int status = ubus_invoke(ctx, id, method.name, args.head, nullptr, nullptr, LIMIT_MS);
        if (status != 0)
            return -status;
        times.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
    }
    blob_buf_free(&args);
    std::nth_element(times.begin(), times.begin() + CALLS / 2, times.end());
    return times[CALLS / 2];
}

int main()
{
    if (fork() == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        run_floor();
        return 1;
    }
    ubus_context *ctx = ubus_connect(nullptr);
    if (!ctx) {
        fprintf(stderr, "no bus: this program runs inside a node (bench/daemon.whole)\n");
        return 1;
    }
    for (const bus_method &method : METHODS) {
        const double median = time_method(ctx, method);
        if (median < 0) {
            fprintf(stderr, "%s %s: status %d\n", method.object, method.name,
                    static_cast<int>(-median));
            return 1;
        }
        printf("%s %s: %.0f us\n", method.object, method.name, median);
    }
    ubus_free(ctx);
    return 0;
}
