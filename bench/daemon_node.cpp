// libraries: host_ubus
// Calls of the running daemon, timed inside its node: what a dump_state costs next to a method that
// does nothing. Started by daemon.whole.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <libubus.h>
#include <vector>

constexpr int CALLS = 300;
constexpr int LIMIT_MS = 5000;

struct bus_method {
    const char *object;
    const char *name;
    const char *argument; // an int32 of 1, or none
};

constexpr std::array<bus_method, 3> METHODS = {{
    {"qnet.wired", "debug", "enable"},
    {"qnet.wired", "dump_state", nullptr},
    {"qnet.wifi", "dump_state", nullptr},
}};

/// Median round trip in microseconds, or a negative bus status.
static double time_method(ubus_context *ctx, const bus_method &method)
{
    uint32_t id = 0;
    if (const int status = ubus_lookup_id(ctx, method.object, &id); status != 0)
        return -status;
    blob_buf args{};
    blob_buf_init(&args, 0);
    if (method.argument)
        blobmsg_add_u32(&args, method.argument, 1);
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
    ubus_context *ctx = ubus_connect(nullptr);
    if (!ctx) {
        fprintf(stderr, "no bus: this program runs inside a node (bench/daemon.whole)\n");
        return 1;
    }
    double empty = 0;
    for (const bus_method &method : METHODS) {
        const double median = time_method(ctx, method);
        if (median < 0) {
            fprintf(stderr, "%s %s: status %d\n", method.object, method.name,
                    static_cast<int>(-median));
            return 1;
        }
        if (empty == 0)
            empty = median;
        printf("%s %s: %.0f us, %.1f times the empty method\n", method.object, method.name, median,
               median / empty);
    }
    ubus_free(ctx);
    return 0;
}
