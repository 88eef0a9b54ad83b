// libraries: tarn_daemon
// Inside a node: the largest settings document from the push to the last commit, next to libuci
// alone making the same changes in one process, and what `uci batch` is fed to make them.
//   push_node DOCUMENT [--write BATCH]
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
}

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "platform/zu/shell.h"
#include "support/file_calls.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

namespace fs = std::filesystem;
using file_texts = std::map<std::string, std::string>;

constexpr char CONFIG[] = "/etc/config/";

struct change {
    bool list;
    std::string text; ///< "package.section[.option]=value"
};

static blob_buf document;
static file_texts before, after;
static wifi_settings settings_before;
static std::map<std::string, std::vector<change>> changes; // by package

static std::string content(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static file_texts configuration()
{
    file_texts all;
    for (const auto &entry : fs::directory_iterator(CONFIG))
        all[entry.path().filename()] = content(entry.path());
    return all;
}

static void put_back()
{
    for (const auto &[name, text] : before)
        std::ofstream(CONFIG + name, std::ios::binary) << text;
    ng_uci_drop_changes();
    wifi_delayed_drop();
    gWifi_live_settings = settings_before;
}

static void push()
{
    if (wifi_parse_config(nullptr, document.head, nullptr) != 0)
        abort();
}

// ---- the same changes for libuci alone

static std::string option_value(const uci_option *option)
{
    std::string text;
    if (option->type == UCI_TYPE_STRING)
        return option->v.string;
    const uci_element *e;
    uci_foreach_element(&const_cast<uci_option *>(option)->v.list, e) text +=
        e->name + std::string("\n");
    return text;
}

static void list_option(std::vector<change> &into, const std::string &name, uci_option *option)
{
    if (option->type == UCI_TYPE_STRING) {
        into.push_back({false, name + "=" + option->v.string});
        return;
    }
    uci_element *e;
    uci_foreach_element(&option->v.list, e) into.push_back({true, name + "=" + e->name});
}

/// What of the package after the push is not there before it.
static std::vector<change> changes_of(const std::string &name)
{
    std::vector<change> found;
    uci_context *old_ctx = uci_alloc_context(), *new_ctx = uci_alloc_context();
    uci_package *older = nullptr, *newer = nullptr;
    fs::create_directory("/tmp/before");
    std::ofstream("/tmp/before/" + name, std::ios::binary) << before[name];
    uci_set_confdir(old_ctx, "/tmp/before");
    if (uci_load(old_ctx, name.c_str(), &older) != 0 ||
        uci_load(new_ctx, name.c_str(), &newer) != 0)
        abort();
    uci_element *s, *o;
    uci_foreach_element(&newer->sections, s)
    {
        uci_section *section = uci_to_section(s);
        uci_section *old = uci_lookup_section(old_ctx, older, s->name);
        const std::string at = name + "." + s->name;
        if (!old)
            found.push_back({false, at + "=" + section->type});
        uci_foreach_element(&section->options, o)
        {
            uci_option *was = old ? uci_lookup_option(old_ctx, old, o->name) : nullptr;
            if (!was || option_value(was) != option_value(uci_to_option(o)))
                list_option(found, at + "." + o->name, uci_to_option(o));
        }
    }
    uci_free_context(old_ctx);
    uci_free_context(new_ctx);
    return found;
}

static void libuci_alone()
{
    uci_context *ctx = uci_alloc_context();
    for (const auto &[name, list] : changes) {
        for (const change &c : list) {
            std::string text = c.text;
            uci_ptr ptr;
            if (uci_lookup_ptr(ctx, &ptr, text.data(), true) != 0 ||
                (c.list ? uci_add_list(ctx, &ptr) : uci_set(ctx, &ptr)) != 0)
                abort();
        }
        uci_package *package = uci_lookup_package(ctx, name.c_str());
        if (uci_save(ctx, package) != 0 || uci_commit(ctx, &package, false) != 0)
            abort();
    }
    uci_free_context(ctx);
}

/// The least that a push must do which changes nothing: look at what UCI holds.
static void libuci_reads()
{
    uci_context *ctx = uci_alloc_context();
    for (const auto &[name, list] : changes) {
        uci_package *package = nullptr;
        if (uci_load(ctx, name.c_str(), &package) != 0)
            abort();
    }
    uci_free_context(ctx);
}

static void write_batch(const char *path)
{
    std::ofstream file(path);
    for (const auto &[name, list] : changes) {
        for (const change &c : list) {
            const size_t equals = c.text.find('=') + 1;
            file << (c.list ? "add_list " : "set ") << c.text.substr(0, equals) << "'"
                 << c.text.substr(equals) << "'\n";
        }
        file << "commit " << name << "\n";
    }
}

// ---- measured

template <void (*run)()>
static void measure(benchmark::State &state)
{
    for (auto unused : state) {
        (void)unused;
        state.PauseTiming();
        put_back();
        state.ResumeTiming();
        run();
    }
}
static void push_again(benchmark::State &state)
{
    put_back();
    push();
    for (auto unused : state) {
        (void)unused;
        push();
    }
}
static void libuci_reads_again(benchmark::State &state)
{
    put_back();
    push();
    for (auto unused : state) {
        (void)unused;
        libuci_reads();
    }
}
/// Part of a push; its time is that of the services.
static void reload_config(benchmark::State &state)
{
    for (auto unused : state) {
        (void)unused;
        shell_run_ignored("reload_config");
    }
}

BENCHMARK(measure<push>)->Name("push")->Unit(benchmark::kMillisecond);
BENCHMARK(reload_config)->Unit(benchmark::kMillisecond);
BENCHMARK(measure<libuci_alone>)->Name("libuci_alone")->Unit(benchmark::kMillisecond);
BENCHMARK(push_again)->Unit(benchmark::kMillisecond);
BENCHMARK(libuci_reads_again)->Unit(benchmark::kMillisecond);

static long reloads()
{
    const std::string journal = content("/var/log/journal");
    long count = 0;
    for (size_t at = 0; (at = journal.find(" reload_config", at)) != journal.npos; at++)
        count++;
    return count;
}

static void counted_push(const char *what)
{
    const long reloads_before = reloads();
    gFile_calls = {};
    push();
    printf("%s: %d renames, %d fsyncs, %ld reloads\n", what, gFile_calls.renames,
           gFile_calls.fsyncs, reloads() - reloads_before);
}

static void prepare(const char *path)
{
    platform_detect();
    uloop_init();
    (void)wifi_reload_config(true);
    settings_before = gWifi_live_settings;
    before = configuration();
    blob_buf_init(&document, 0);
    if (!blobmsg_add_json_from_string(&document, content(path).c_str()))
        exit((fprintf(stderr, "%s: no document\n", path), 1));
    counted_push("push");
    after = configuration();
    size_t files = 0, bytes = 0;
    for (const auto &[name, text] : after)
        if (text != before[name]) {
            changes[name] = changes_of(name);
            files++;
            bytes += text.size();
        }
    printf("written by one push: %zu files, %zu bytes\n", files, bytes);
    counted_push("the same push again");
    put_back();
}

int main(int argc, char **argv)
{
    if (argc < 2)
        return 1;
    prepare(argv[1]);
    if (argc > 3 && strcmp(argv[2], "--write") == 0) {
        write_batch(argv[3]);
        return 0;
    }
    int one = 1;
    benchmark::Initialize(&one, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
