// libraries: tarn_daemon
// The answer to a scan that found 1000 access points: what the callback makes of it, next to taking
// the same entries apart and no more.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstring>
#include <ctime>
#include <fstream>
#include <malloc.h>
#include <string>

#include "platform/zu/blobmsg_util.h"
#include "wifi/radio/radio_internal.h"

constexpr uint32_t NETWORKS = 1000;

static void add_channels(blob_buf *reply, const char *name, uint32_t count)
{
    void *array = blobmsg_open_array(reply, name);
    for (uint32_t i = 0; i < count; i++)
        blobmsg_add_u32(reply, nullptr, 36 + 4 * i);
    blobmsg_close_array(reply, array);
}

static void add_network(blob_buf *reply, uint32_t number)
{
    void *table = blobmsg_open_table(reply, nullptr);
    blobmsg_add_string(reply, "band", "5GHz");
    blobmsg_add_u32(reply, "channel", 36);
    blobmsg_add_string(reply, "ht", "40+");
    add_channels(reply, "ht_channels", 2);
    blobmsg_add_string(reply, "vht", "80");
    add_channels(reply, "vht_channels", 4);
    blobmsg_add_string(reply, "he", "160");
    add_channels(reply, "he_channels", 8);
    blobmsg_add_string(reply, "ssid", ("Network " + std::to_string(number)).c_str());
    blobmsg_add_string(reply, "bssid", "02:00:00:00:00:01");
    blobmsg_add_u16(reply, "crypto", 1);
    blobmsg_add_u16(reply, "wpa_version", 2);
    blobmsg_add_string(reply, "auth_suites", "PSK");
    blobmsg_add_string(reply, "cipher", "CCMP");
    blobmsg_add_string(reply, "mbm", "-6500");
    blobmsg_add_string(reply, "wifi_modes", "a/n/ac/ax");
    blobmsg_close_table(reply, table);
}

struct scan_reply : blob_buffer {
    scan_reply()
    {
        blob_buf_init(this, 0);
        void *list = blobmsg_open_array(this, "scan");
        for (uint32_t i = 0; i < NETWORKS; i++)
            add_network(this, i);
        blobmsg_close_array(this, list);
    }
    blob_attr *list() const { return static_cast<blob_attr *>(blob_data(head)); }
};

static void parse_alone(benchmark::State &state)
{
    const char *const names[] = {"band",        "channel",      "ht",     "ht_channels",
                                 "vht",         "vht_channels", "he",     "he_channels",
                                 "ssid",        "bssid",        "crypto", "wpa_version",
                                 "auth_suites", "cipher",       "mbm",    "wifi_modes"};
    constexpr int MEMBERS = 16;
    blobmsg_policy policy[MEMBERS];
    for (int i = 0; i < MEMBERS; i++)
        policy[i] = {names[i], BLOBMSG_TYPE_UNSPEC};
    const scan_reply reply;
    for (auto _ : state) {
        blob_attr *entry;
        size_t rest;
        blobmsg_for_each_attr(entry, reply.list(), rest)
        {
            blob_attr *members[MEMBERS];
            benchmark::DoNotOptimize(blobmsg_parse(policy, MEMBERS, members, blobmsg_data(entry),
                                                   static_cast<unsigned>(blobmsg_data_len(entry))));
        }
    }
}
BENCHMARK(parse_alone);

static double cpu_s()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// Bytes in memory now, or at most since the last call of forget_peak().
static double resident_bytes(const char *which)
{
    std::ifstream status("/proc/self/status");
    for (std::string name, kib; status >> name; getline(status, kib))
        if (name == which)
            return status >> kib ? std::stod(kib) * 1024 : 0;
    return 0;
}

static void forget_peak()
{
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5;
}

static void callback(benchmark::State &state)
{
    const scan_reply reply;
    scanning_result entry{};
    strcpy(entry.ifname, "scan");
    ubus_request request{};
    request.priv = &entry;
    forget_peak();
    const double before = resident_bytes("VmRSS:");
    wifi_scan_collect_results_data_cb(&request, 0, reply.head);
    state.counters["peak_bytes"] = resident_bytes("VmHWM:") - before;
    state.counters["kept_bytes"] = static_cast<double>(blob_pad_len(entry.results.head));
    state.counters["reply_bytes"] = static_cast<double>(blob_pad_len(reply.head));
    double longest_s = 0;
    for (auto _ : state) {
        const double began = cpu_s();
        wifi_scan_collect_results_data_cb(&request, 0, reply.head);
        longest_s = std::max(longest_s, cpu_s() - began);
    }
    state.counters["longest_cpu_s"] = longest_s;
    blob_buf_free(&entry.results);
}
BENCHMARK(callback);

BENCHMARK_MAIN();
