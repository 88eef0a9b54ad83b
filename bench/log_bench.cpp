// libraries: tarn_zu
// What a log call costs when its level is off, and when its line is written.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <string>
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

/// The least a line that is kept can cost: its time and text formatted, and one write to a file
/// that the log could be.
static void one_formatted_write(benchmark::State &state)
{
    char path[] = "/tmp/log_bench_XXXXXX";
    FILE *file = fdopen(mkostemp(path, O_APPEND), "a");
    unlink(path);
    long length = 0;
    int i = 0;
    for (auto _ : state) {
        char stamp[32];
        const time_t now = time(nullptr);
        ctime_r(&now, stamp);
        length +=
            fprintf(file, "%.24s [%i] %s:%d: %s: Tests run: %d/%d on interface '%s'\n", stamp,
                    static_cast<int>(getpid()), __func__, __LINE__, "DEBUG", i++, 32, "br-wired0");
        fflush(file);
        if (length > LOG_FILE_LIMIT && ftruncate(fileno(file), length = 0) < 0)
            abort();
    }
    fclose(file);
}
BENCHMARK(one_formatted_write);

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
