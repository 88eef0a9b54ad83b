// libraries: host_ubus
// gen_checkin of a loaded daemon, timed inside its node: next to a ready-made answer of the same
// size, and while every hostapd instance hangs. Started by checkin.whole.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libubus.h>
#include <unistd.h>
#include <vector>

constexpr int CALLS = 100;
constexpr int LIMIT_MS = 5000;
constexpr int HANG_S = 30;

using instant = std::chrono::steady_clock::time_point;

struct call {
    const char *object, *method;
};

static double us_since(instant start)
{
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
        .count();
}

static void keep_cb(ubus_request *request, int, blob_attr *msg)
{
    auto *kept = static_cast<std::vector<char> *>(request->priv);
    const char *start = reinterpret_cast<const char *>(msg);
    kept->assign(start, start + blob_pad_len(msg));
}

/// One round trip in microseconds; `answer` may be null.
static double time_call(ubus_context *ctx, const call &asked, std::vector<char> *answer,
                        blob_attr *message = nullptr)
{
    uint32_t id = 0;
    blob_buf arguments{};
    blob_buf_init(&arguments, 0);
    int status = ubus_lookup_id(ctx, asked.object, &id);
    const instant start = std::chrono::steady_clock::now();
    if (status == 0)
        status = ubus_invoke(ctx, id, asked.method, message ? message : arguments.head,
                             answer ? keep_cb : nullptr, answer, LIMIT_MS);
    const double us = us_since(start);
    blob_buf_free(&arguments);
    if (status != 0) {
        fprintf(stderr, "%s %s: %s\n", asked.object, asked.method, ubus_strerror(status));
        exit(1);
    }
    return us;
}

static double median_of(std::vector<double> times)
{
    std::nth_element(times.begin(), times.begin() + static_cast<long>(times.size() / 2),
                     times.end());
    return times[times.size() / 2];
}

static double time_calls(ubus_context *ctx, const call &asked)
{
    std::vector<double> times;
    for (int i = 0; i < CALLS; i++)
        times.push_back(time_call(ctx, asked, nullptr));
    return median_of(times);
}

// ---- the echo, in a process of its own

static int echo_message(ubus_context *ctx, ubus_object *, ubus_request_data *request, const char *,
                        blob_attr *msg)
{
    return ubus_send_reply(ctx, request, msg);
}

static pid_t start_echo()
{
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    static ubus_method method{};
    method.name = "echo";
    method.handler = echo_message;
    static ubus_object_type type = {"bench", 0, &method, 1};
    static ubus_object object{};
    object.name = "bench";
    object.type = &type;
    object.methods = &method;
    object.n_methods = 1;
    uloop_init();
    ubus_context *ctx = ubus_connect(nullptr);
    if (!ctx || ubus_add_object(ctx, &object) != 0)
        _exit(1);
    ubus_add_uloop(ctx);
    uloop_run();
    _exit(0);
}

constexpr call CHECKIN = {"qnet.wifi", "gen_checkin"};

static void compare_with_echo(ubus_context *ctx)
{
    std::vector<char> section;
    time_call(ctx, CHECKIN, &section);
    const pid_t echo = start_echo();
    uint32_t id = 0;
    for (int tries = 0; tries < 100 && ubus_lookup_id(ctx, "bench", &id) != 0; tries++)
        usleep(20000);
    // In turns, as the machine has other work.
    std::vector<double> made, sent;
    for (int i = 0; i < CALLS; i++) {
        made.push_back(time_call(ctx, CHECKIN, nullptr));
        sent.push_back(time_call(ctx, {"bench", "echo"}, nullptr,
                                 reinterpret_cast<blob_attr *>(section.data())));
    }
    kill(echo, SIGKILL);
    printf("gen_checkin, %zu bytes: %.0f us; an echo of that size: %.0f us; ratio %.2f\n",
           section.size(), median_of(made), median_of(sent), median_of(made) / median_of(sent));
}

static void compare_with_hanging_hostapd(ubus_context *ctx)
{
    const double before = time_calls(ctx, CHECKIN);
    if (system("\"$TARN_SOURCE/bench/checkin_hang\"") != 0) {
        fprintf(stderr, "hostapd could not be made to hang\n");
        exit(1);
    }
    std::vector<double> times;
    const instant start = std::chrono::steady_clock::now();
    while (us_since(start) < HANG_S * 1e6) {
        times.push_back(time_call(ctx, CHECKIN, nullptr));
        usleep(20000);
    }
    printf("gen_checkin while hostapd hangs for %d s: median %.0f us, longest %.0f us; without: "
           "%.0f us; ratio %.2f\n",
           HANG_S, median_of(times), *std::max_element(times.begin(), times.end()), before,
           median_of(times) / before);
}

int main()
{
    ubus_context *ctx = ubus_connect(nullptr);
    if (!ctx) {
        fprintf(stderr, "no bus: this program runs inside a node (bench/checkin.whole)\n");
        return 1;
    }
    compare_with_echo(ctx);
    compare_with_hanging_hostapd(ctx);
    ubus_free(ctx);
    return 0;
}
