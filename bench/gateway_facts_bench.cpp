// libraries: tarn_daemon
// Parsing the gateway facts, as every 150 s, next to cutting the same text at its blanks only.
#include <benchmark/benchmark.h>
#include <string>
#include <string_view>

#include "mesh/gateway_facts.h"

static std::string text_of(int hops)
{
    std::string text = "gwm|02:11:00:00:00:01 gwq|251 tr|02:11:00:00:00:02";
    for (int i = 1; i < hops; i++)
        text += ",02:11:00:00:00:01";
    return text + " p|1.511 tp|156.84-MB/s";
}

static void cut(benchmark::State &state)
{
    const std::string text = text_of(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::string_view rest = text;
        while (!rest.empty()) {
            std::string token(rest.substr(0, rest.find(' ')));
            benchmark::DoNotOptimize(token);
            rest.remove_prefix(std::min(rest.size(), token.size() + 1));
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

static void parse(benchmark::State &state)
{
    const std::string text = text_of(static_cast<int>(state.range(0)));
    mesh_gateway_facts facts{};
    for (auto _ : state)
        benchmark::DoNotOptimize(mesh_gateway_facts_parse(&facts, text));
    mesh_gateway_facts_clear(&facts);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK(cut)->Arg(1)->Arg(10);
BENCHMARK(parse)->Arg(1)->Arg(10);

BENCHMARK_MAIN();
