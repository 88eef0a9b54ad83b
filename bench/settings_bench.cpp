// libraries: tarn_daemon host_ubusd_core
// The largest settings document: parsing it next to the least that must be done, a walk over its
// bytes with policies that ask for nothing; and showing it over the bus next to a reply of the same
// size that is ready made. Run in the project's folder.
#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "broker.h"
#include "platform/fw_core/fw_core.h"
#include "platform/zu/platform_data.h"
#include "wifi/settings/parse.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

static std::string socket_path;
static blob_buf document;

static std::string content(const char *path)
{
    std::ifstream file(path);
    std::string text(std::istreambuf_iterator<char>(file), {});
    if (text.empty())
        exit((fprintf(stderr, "%s: not found; run this in the project's folder\n", path), 1));
    return text;
}

static blob_attr *params()
{
    return static_cast<blob_attr *>(blob_data(document.head));
}

static wifi_settings configured_node()
{
    wifi_settings settings{};
    for (wifi_radio_settings &radio : settings.radios)
        radio.channel = 36;
    return settings;
}

/// Every level of the document, as blobmsg_parse must look at it.
static void walk(blob_attr *container)
{
    static constexpr blobmsg_policy NOTHING = {};
    blob_attr *none[1];
    (void)blobmsg_parse(&NOTHING, 0, none, blobmsg_data(container),
                        static_cast<unsigned>(blobmsg_data_len(container)));
    blob_attr *member;
    size_t rest;
    blobmsg_for_each_attr(member, container, rest)
    {
        if (blobmsg_type(member) == BLOBMSG_TYPE_TABLE ||
            blobmsg_type(member) == BLOBMSG_TYPE_ARRAY)
            walk(member);
    }
}

static void parse_with_empty_tables(benchmark::State &state)
{
    for (auto _ : state)
        walk(params());
}
BENCHMARK(parse_with_empty_tables);

static void parse_into_the_record(benchmark::State &state)
{
    const wifi_settings live = configured_node();
    static wifi_settings settings;
    for (auto _ : state) {
        settings = live;
        wifi_parsed_document parsed = {&settings, nullptr, nullptr};
        if (wifi_settings_parse(params(), &parsed) != 0)
            state.SkipWithError("refused");
    }
}
BENCHMARK(parse_into_the_record);

// ---- over the bus: broker, owner and caller are processes of their own

static void start_process(void (*work)())
{
    if (fork() != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    work();
    _exit(0);
}

static ubus_context *connect_patiently()
{
    for (int i = 0; i < 1000; i++, usleep(1000))
        if (ubus_context *ctx = ubus_connect(socket_path.c_str()))
            return ctx;
    abort();
}

static void run_broker()
{
    if (uloop_init() == 0 && server_start(socket_path.c_str()) == 0)
        (void)uloop_run();
}

static blob_buf ready_made;

static int ready_made_cb(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *,
                         blob_attr *)
{
    return ubus_send_reply(ctx, req, ready_made.head);
}

static void run_owner()
{
    static const package_callbacks callbacks = {nullptr, nullptr, nullptr, nullptr,
                                                wifi_dump_state};
    static const ubus_method methods[] = {
        UBUS_METHOD("dump_state", ubus_dump_state, ubus_package_dump_state_policy),
        UBUS_METHOD_NOARG("ready_made", ready_made_cb),
    };
    static ubus_object_type type = UBUS_OBJECT_TYPE("bench", methods);
    static ubus_object object;
    object.name = "bench";
    object.type = &type;
    object.methods = methods;
    object.n_methods = ARRAY_SIZE(methods);
    gPackage_method_handlers[gPackage_method_handlers_index++] = {"bench", &callbacks};
    uloop_init();
    ubus_context *ctx = connect_patiently();
    ubus_add_uloop(ctx);
    blobmsg_buf_init(&ready_made);
    (void)wifi_dump_state(ctx, nullptr, &ready_made);
    if (ubus_add_object(ctx, &object) == 0)
        (void)uloop_run();
}

static void call(benchmark::State &state, const char *method)
{
    ubus_context *ctx = connect_patiently();
    uint32_t id = 0;
    for (int i = 0; i < 1000 && ubus_lookup_id(ctx, "bench", &id) != 0; i++)
        usleep(1000);
    blob_buf none = {};
    blobmsg_buf_init(&none);
    static size_t size;
    const auto measure = [](ubus_request *, int, blob_attr *reply) { size = blob_raw_len(reply); };
    for (auto _ : state)
        if (ubus_invoke(ctx, id, method, none.head, measure, nullptr, 5000) != 0)
            state.SkipWithError("call failed");
    state.counters["bytes"] = static_cast<double>(size);
    blob_buf_free(&none);
    ubus_free(ctx);
}
BENCHMARK_CAPTURE(call, ready_made, "ready_made")->UseRealTime();
BENCHMARK_CAPTURE(call, dump_state, "dump_state")->UseRealTime();

int main(int argc, char **argv)
{
    char folder[] = "/tmp/settings_bench_XXXXXX";
    if (!mkdtemp(folder))
        return 1;
    socket_path = std::string(folder) + "/ubus.sock";
    blobmsg_buf_init(&document);
    if (!blobmsg_add_json_from_string(&document, content("examples/limits.json").c_str()) ||
        !_parse_platform_data(content("sim/root/etc/tarn/platform.json").c_str()))
        return 1;
    gWifi_live_settings = configured_node();
    wifi_parsed_document parsed = {&gWifi_live_settings, nullptr, nullptr};
    if (wifi_settings_parse(params(), &parsed) != 0)
        return 1;
    start_process(run_broker);
    start_process(run_owner);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    unlink(socket_path.c_str());
    return rmdir(folder) == 0 ? 0 : 1;
}
