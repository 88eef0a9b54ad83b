// libraries: host_ubusd_core
// What the bus costs: broker, owner and caller are processes of their own.
#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdlib>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "broker.h"

static std::string folder;
static std::string socket_path;

/// A process that runs `work` and dies with this one.
static pid_t start_process(void (*work)())
{
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    work();
    _exit(0);
}

static void run_broker()
{
    if (uloop_init() == 0 && server_start(socket_path.c_str()) == 0)
        (void)uloop_run();
    server_stop();
}

static ubus_context *connect_patiently()
{
    for (int i = 0; i < 1000; i++, usleep(1000))
        if (ubus_context *ctx = ubus_connect(socket_path.c_str()))
            return ctx;
    abort();
}

static int empty_cb(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return 0;
}

static int echo_cb(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *,
                   blob_attr *msg)
{
    return ubus_send_reply(ctx, req, msg);
}

static void run_owner()
{
    static const ubus_method methods[] = {
        UBUS_METHOD_NOARG("empty", empty_cb),
        UBUS_METHOD_NOARG("echo", echo_cb),
    };
    static ubus_object_type type = UBUS_OBJECT_TYPE("bench", methods);
    static ubus_object object;
    object.name = "bench";
    object.type = &type;
    object.methods = methods;
    object.n_methods = ARRAY_SIZE(methods);
    ubus_context *ctx = connect_patiently();
    ubus_add_uloop(ctx);
    if (ubus_add_object(ctx, &object) == 0)
        (void)uloop_run();
}

static uint32_t bench_object(ubus_context *ctx)
{
    uint32_t id = 0;
    for (int i = 0; i < 1000 && ubus_lookup_id(ctx, "bench", &id) != 0; i++)
        usleep(1000);
    return id;
}

static void empty_call(benchmark::State &state)
{
    ubus_context *ctx = connect_patiently();
    const uint32_t id = bench_object(ctx);
    for (auto _ : state)
        if (ubus_invoke(ctx, id, "empty", nullptr, nullptr, nullptr, 5000) != 0)
            state.SkipWithError("call failed");
    ubus_free(ctx);
}
BENCHMARK(empty_call)->UseRealTime();

static void echoed_bytes(benchmark::State &state)
{
    ubus_context *ctx = connect_patiently();
    const uint32_t id = bench_object(ctx);
    wire_buf args;
    blobmsg_add_string(&args.b, "text", std::string((size_t)state.range(0), 'x').c_str());
    for (auto _ : state)
        if (ubus_invoke(ctx, id, "echo", args.msg(), nullptr, nullptr, 5000) != 0)
            state.SkipWithError("call failed");
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
    ubus_free(ctx);
}
BENCHMARK(echoed_bytes)->Arg(1 << 10)->Arg(100 << 10)->Arg(1000000)->UseRealTime();

static void event_without_listener(benchmark::State &state)
{
    ubus_context *ctx = connect_patiently();
    wire_buf data;
    for (auto _ : state)
        if (ubus_send_event(ctx, "bench", data.msg()) != 0)
            state.SkipWithError("event refused");
    ubus_free(ctx);
}
BENCHMARK(event_without_listener)->UseRealTime();

int main(int argc, char **argv)
{
    char name[] = "/tmp/bus_bench_XXXXXX";
    if (!mkdtemp(name))
        return 1;
    folder = name;
    socket_path = folder + "/ubus.sock";
    const pid_t owner = start_process(run_owner);
    const pid_t broker = start_process(run_broker);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    kill(owner, SIGKILL);
    kill(broker, SIGTERM);
    waitpid(owner, nullptr, 0);
    waitpid(broker, nullptr, 0);
    rmdir(name);
    return 0;
}
