// libraries: host_blobmsg_json
// A settings document of about 100 KB: text to message, message to text, and taking it apart.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <libubox/blobmsg_json.h>
#include <string>

/// 400 tables of mixed members, as a list of networks would be.
static void build_document(blob_buf *buf)
{
    blobmsg_buf_init(buf);
    void *list = blobmsg_open_array(buf, "ssids");
    for (uint32_t i = 0; i < 400; i++) {
        void *table = blobmsg_open_table(buf, nullptr);
        blobmsg_printf(buf, "ssid", "Network \"%u\" of the long list", i);
        blobmsg_add_string(buf, "description", std::string(100, 'd').c_str());
        blobmsg_add_u32(buf, "vlan", i);
        blobmsg_add_u64(buf, "bytes", i * 10000000000ull);
        blobmsg_add_u8(buf, "enable", i % 2 == 0);
        blobmsg_add_double(buf, "load", i / 7.0);
        void *rates = blobmsg_open_array(buf, "rates");
        for (uint32_t rate = 0; rate < 4; rate++)
            blobmsg_add_u32(buf, nullptr, 6 + rate * 6);
        blobmsg_close_array(buf, rates);
        blobmsg_close_table(buf, table);
    }
    blobmsg_close_array(buf, list);
}

static void format(benchmark::State &state)
{
    blob_buf buf = {};
    build_document(&buf);
    size_t len = 0;
    for (auto _ : state) {
        char *text = blobmsg_format_json(buf.head, true);
        len = strlen(text);
        free(text);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * len));
    blob_buf_free(&buf);
}
BENCHMARK(format);

static void read_text(benchmark::State &state)
{
    blob_buf buf = {}, out = {};
    build_document(&buf);
    char *text = blobmsg_format_json(buf.head, true);
    for (auto _ : state) {
        blobmsg_buf_init(&out);
        benchmark::DoNotOptimize(blobmsg_add_json_from_string(&out, text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * strlen(text)));
    free(text);
    blob_buf_free(&buf);
    blob_buf_free(&out);
}
BENCHMARK(read_text);

/// Building a message from nothing, growth of its buffer included.
static void build(benchmark::State &state)
{
    int64_t bytes = 0;
    for (auto _ : state) {
        blob_buf buf = {};
        build_document(&buf);
        bytes += static_cast<int64_t>(blob_raw_len(buf.head));
        blob_buf_free(&buf);
    }
    state.SetBytesProcessed(bytes);
}
BENCHMARK(build);

/// Every table of the document against a policy of six names.
static void parse(benchmark::State &state)
{
    static constexpr blobmsg_policy POLICY[] = {
        {"ssid", BLOBMSG_TYPE_STRING}, {"vlan", BLOBMSG_TYPE_INT32},
        {"bytes", BLOBMSG_TYPE_INT64}, {"enable", BLOBMSG_TYPE_BOOL},
        {"rates", BLOBMSG_TYPE_ARRAY}, {"absent", BLOBMSG_TYPE_TABLE},
    };
    static constexpr int LEN = sizeof(POLICY) / sizeof(POLICY[0]);
    blob_buf buf = {};
    build_document(&buf);
    auto *list = static_cast<blob_attr *>(blob_data(buf.head));
    for (auto _ : state) {
        blob_attr *tb[LEN], *table;
        size_t rem;
        blobmsg_for_each_attr(table, list, rem)
        {
            blobmsg_parse_attr(POLICY, LEN, tb, table);
            benchmark::DoNotOptimize(tb);
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * blob_raw_len(buf.head)));
    blob_buf_free(&buf);
}
BENCHMARK(parse);

BENCHMARK_MAIN();
