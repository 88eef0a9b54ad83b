// Acting on the node and looking at it; see stage.h.
#include "stage.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <libubus.h>
#include <sstream>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace fs = std::filesystem;

constexpr int ANSWER_LIMIT_MS = 3000;
constexpr char TMP_SIZE[] = "size=4m";
constexpr char FILL[] = "/tmp/fill";
constexpr char GARBLED[] = "/run/garbled_";

static void end_cb(uloop_timeout *)
{
    uloop_end();
}

static std::string read_all(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct child {
    uloop_process process{};
    int status = -1;
};

static void child_cb(uloop_process *process, int status)
{
    reinterpret_cast<child *>(process)->status = status;
    uloop_end();
}

constexpr char OUTPUT[] = "/run/scenario.output";

[[noreturn]] static void become(const std::vector<std::string> &words)
{
    const int fd = open(OUTPUT, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

/// Its exit status once it has ended.
static int run_words(const std::vector<std::string> &words)
{
    child run;
    run.process.pid = fork();
    if (run.process.pid == 0)
        become(words);
    run.process.cb = child_cb;
    uloop_process_add(&run.process);
    while (run.process.pending)
        uloop_run();
    return WIFEXITED(run.status) ? WEXITSTATUS(run.status) : 128;
}

struct answer {
    ubus_request request{};
    std::string json;
};

static void answer_cb(ubus_request *request, int, blob_attr *msg)
{
    char *text = blobmsg_format_json(msg, true);
    reinterpret_cast<answer *>(request)->json = text ? text : "";
    free(text);
}

static void answered_cb(ubus_request *, int)
{
    uloop_end();
}

/// Fills /tmp to the last byte.
static bool fill_tmp()
{
    const int fd = open(FILL, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    static const char block[4096]{};
    while (write(fd, block, sizeof block) > 0)
        ;
    close(fd);
    return fd >= 0;
}

static std::string shell_path()
{
    return fs::canonical("/bin/sh").string();
}

static std::string package_file(const std::string &what)
{
    return "/etc/config/" + what.substr(what.find(' ') + 1);
}

/// A file that is a mount point cannot be replaced.
static bool mount_over(const std::string &source, const std::string &target)
{
    return mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

static std::map<std::string, int> locks; ///< descriptors, by what is broken

static bool lock_package(const std::string &what)
{
    const int fd = open(package_file(what).c_str(), O_RDWR | O_CLOEXEC);
    locks[what] = fd;
    return fd >= 0 && flock(fd, LOCK_EX) == 0;
}

/// The file that stands in for a package and ends in the middle of a word; each package has its
/// own, so that each can be locked alone.
static bool garble_package(const std::string &what)
{
    const std::string stand_in = GARBLED + fs::path(package_file(what)).filename().string();
    std::ofstream(stand_in) << "config half 'a\n";
    return mount_over(stand_in, package_file(what));
}

static long bytes_below(const std::string &folder)
{
    long sum = 0;
    for (const auto &file : fs::directory_iterator(folder))
        sum += static_cast<long>(file.file_size());
    return sum;
}

static long entries_of(const std::string &folder,
                       const std::function<bool(const std::string &)> &counts)
{
    long count = 0;
    for (const auto &file : fs::directory_iterator(folder))
        count += counts(file.path().filename().string()) ? 1 : 0;
    return count;
}

void stage_advance_ms(long ms)
{
    static uloop_timeout timer{.list = {}, .pending = false, .cb = end_cb, .time = {}};
    uloop_timeout_set(&timer, static_cast<int>(ms));
    while (timer.pending)
        uloop_run();
}

int stage_run(const std::string &command, std::string *output)
{
    const int status = run_words({"/bin/sh", "-c", command});
    if (output)
        *output += read_all(OUTPUT);
    return status;
}

int stage_run_program(const std::string &words)
{
    std::vector<std::string> list;
    std::istringstream in(words);
    for (std::string word; in >> word;)
        list.push_back(word);
    return run_words(list);
}

std::string stage_ask(const std::string &object, const std::string &method)
{
    answer got;
    ubus_context *bus = ubus_connect(nullptr);
    if (!bus)
        return "";
    ubus_add_uloop(bus);
    uint32_t id = 0;
    if (ubus_lookup_id(bus, object.c_str(), &id) == 0 &&
        ubus_invoke_async_fd(bus, id, method.c_str(), nullptr, &got.request, -1) == 0) {
        uloop_timeout limit{.list = {}, .pending = false, .cb = end_cb, .time = {}};
        got.request.data_cb = answer_cb;
        got.request.complete_cb = answered_cb;
        ubus_complete_request_async(bus, &got.request);
        uloop_timeout_set(&limit, ANSWER_LIMIT_MS);
        uloop_run();
        uloop_timeout_cancel(&limit);
    }
    ubus_free(bus);
    return got.json;
}

bool stage_bound_tmp()
{
    // The checkout and its build directory may lie below /tmp: they are put back in front.
    std::vector<std::pair<std::string, int>> hidden;
    for (const char *name : {"TARN_SOURCE", "TARN_BUILD"}) {
        const char *path = getenv(name);
        if (path && std::string(path).starts_with("/tmp/"))
            hidden.emplace_back(path, open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    if (mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID, TMP_SIZE) != 0)
        return false;
    for (const auto &[path, folder] : hidden) {
        std::error_code error;
        fs::create_directories(path, error);
        const bool back = mount_over("/proc/self/fd/" + std::to_string(folder), path);
        close(folder);
        if (!back)
            return false;
    }
    return mkdir("/tmp/.uci", 0700) == 0;
}

bool stage_break(const std::string &what)
{
    if (what == "disk")
        return fill_tmp();
    // This program in the shell's place: main() sees by its name that it is to die.
    if (what == "shell")
        return mount_over("/proc/self/exe", shell_path());
    if (what.starts_with("commit "))
        return mount_over(package_file(what), package_file(what));
    if (what.starts_with("lock "))
        return lock_package(what);
    if (what.starts_with("file "))
        return garble_package(what);
    return false;
}

bool stage_mend(const std::string &what)
{
    if (what == "disk")
        return unlink(FILL) == 0;
    if (what == "shell")
        return umount2(shell_path().c_str(), 0) == 0;
    if (what.starts_with("lock "))
        return close(locks[what]) == 0;
    if (what.starts_with("commit ") || what.starts_with("file "))
        return umount2(package_file(what).c_str(), MNT_DETACH) == 0;
    return false;
}

std::map<std::string, long> stage_amounts()
{
    std::string pid;
    std::ifstream("/var/run/tarn_net.pid") >> pid;
    long pages = 0, resident = 0;
    std::ifstream("/proc/" + pid + "/statm") >> pages >> resident;
    std::string rules;
    stage_run("ip rule show; ip -6 rule show", &rules);
    const auto any = [](const std::string &) { return true; };
    const auto process = [](const std::string &name) { return isdigit(name[0]) != 0; };
    return {{"resident memory (KiB)", resident * (sysconf(_SC_PAGESIZE) / 1024)},
            {"descriptors", entries_of("/proc/" + pid + "/fd", any)},
            {"processes", entries_of("/proc", process)},
            {"rules", static_cast<long>(std::count(rules.begin(), rules.end(), '\n'))},
            {"configuration (bytes)", bytes_below("/etc/config")},
            {"uncommitted changes (bytes)", bytes_below("/tmp/.uci")}};
}

std::map<std::string, long> stage_daemon_amounts()
{
    std::string pid;
    std::ifstream("/var/run/tarn_net.pid") >> pid;
    long daemons = 0, children = 0;
    for (const auto &folder : fs::directory_iterator("/proc")) {
        std::string number, name, state, parent;
        if (std::ifstream(folder.path() / "stat") >> number >> name >> state >> parent) {
            children += parent == pid ? 1 : 0;
            daemons += name == "(tarn_net)" ? 1 : 0;
        }
    }
    const auto any = [](const std::string &) { return true; };
    return {{"daemons", daemons},
            {"children of the daemon", children},
            {"descriptors of the daemon", entries_of("/proc/" + pid + "/fd", any)}};
}

std::map<std::string, std::string> stage_configuration()
{
    std::string text;
    stage_run("uci show", &text);
    std::map<std::string, std::string> all;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const size_t name_end = line.find('=');
        if (name_end != std::string::npos)
            all[line.substr(0, name_end)] = line.substr(name_end + 1);
    }
    return all;
}

stage_callback stage_longest_callback()
{
    double us = 0, end_ms = 0, commands_us = 0;
    std::ifstream("/var/sim/loop") >> us >> end_ms >> commands_us;
    return {us / 1000, commands_us / 1000, end_ms / 1000};
}
