// libraries: tarn_zu
// What a log call costs when its level is off, and when its line is written.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/zu/log.h"

static void open_log(int level)
{
    static std::string path;
    if (path.empty()) {
        path = "/tmp/log_bench_XXXXXX";
        close(mkstemp(path.data()));
        atexit([] {
            unlink(path.c_str());
            unlink((path + ".1").c_str());
        });
        debug_init(path.c_str());
    }
    debug_set_level(level);
}

/// The least a line that is kept can cost: one write.
static void one_write(benchmark::State &state)
{
    const int fd = memfd_create("log_bench", MFD_CLOEXEC);
    static constexpr char LINE[] =
        "Sun Nov 22 01:00:00 2026 [12345] log_enabled:70: DEBUG: Tests run: 1/32 on "
        "interface 'br-wired0'\n";
    for (auto _ : state)
        if (pwrite(fd, LINE, sizeof LINE - 1, 0) < 0)
            abort();
    close(fd);
}
BENCHMARK(one_write);

/// The least a check can be: one load and one comparison.
static void one_comparison(benchmark::State &state)
{
    open_log(ZU_LOG_NOTICE);
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(i++);
        if (gDebug_log_level >= ZU_LOG_DEBUG)
            abort();
        benchmark::ClobberMemory();
    }
}
BENCHMARK(one_comparison);

static void log_disabled(benchmark::State &state)
{
    open_log(ZU_LOG_NOTICE);
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(i++);
        log_debug("Tests run: %d/%d on interface '%s'", i, 32, "br-wired0");
        benchmark::ClobberMemory();
    }
}
BENCHMARK(log_disabled);

static void log_enabled(benchmark::State &state)
{
    open_log(ZU_LOG_DEBUG);
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(i++);
        log_debug("Tests run: %d/%d on interface '%s'", i, 32, "br-wired0");
    }
}
BENCHMARK(log_enabled);

BENCHMARK_MAIN();
