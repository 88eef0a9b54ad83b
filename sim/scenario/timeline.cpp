// The sources of the time line; see timeline.h. Narrates on standard output as it goes.
#include "timeline.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <libubus.h>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

constexpr char JOURNAL[] = "/var/log/journal";
constexpr char LOG[] = "/tmp/debug_tarn_net.log";
constexpr char LED_FLAGS[] = "/tmp/led_flags";
constexpr unsigned RULE_PRIORITY = 500; // the upstream's rules; others are the system's own
constexpr int RECONNECT_MS = 50;

static std::vector<entry> entries;
static timespec started;

static double seconds(const timespec &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// A file that others append to; what is new is read from where the last reading ended.
struct followed_file {
    const char *path;
    void (*take)(const std::string &line);
    long offset = 0;
    std::string rest; ///< a line without its end yet
};

static bool is_narrated(const entry &added)
{
    if (added.what == kind::statistics || added.what == kind::peer)
        return false;
    return added.what != kind::log ||
           !(added.text.starts_with("DEBUG") || added.text.starts_with("INFO"));
}

static void add(kind what, const std::string &text)
{
    entries.push_back({timeline_now(), what, text});
    const entry &added = entries.back();
    if (!is_narrated(added))
        return;
    printf("%9.2f  %-8s %s\n", added.at, kind_name(what), text.c_str());
    fflush(stdout);
}

/// "<seconds since boot> <name> <arguments>"
static void note_journal_line(const std::string &line)
{
    const std::string words = line.substr(line.find(' ') + 1);
    static const char *const statistics[] = {"batctl gwl", "batctl tr", "batctl p ", "batctl tp"};
    if (words.starts_with("keep ")) {
        add(kind::ended, words.substr(5));
        return;
    }
    for (const char *look_up : statistics) {
        if (words.starts_with(look_up)) {
            add(kind::statistics, words);
            return;
        }
    }
    add(words.starts_with("sim_") ? kind::peer : kind::command, words);
}

/// "<time> [<process>] <function>:<line>: <LEVEL>: <message>" becomes "<LEVEL> <message>".
static void note_log_line(const std::string &line)
{
    const size_t process = line.find("] ");
    const size_t level = line.find(": ", process == std::string::npos ? 0 : process);
    const size_t message = level == std::string::npos ? level : line.find(": ", level + 2);
    if (message == std::string::npos)
        add(kind::log, line);
    else
        add(kind::log, line.substr(level + 2, message - level - 2) + line.substr(message + 1));
}

static followed_file journal{JOURNAL, note_journal_line, 0, {}};
static followed_file daemon_log{LOG, note_log_line, 0, {}};

static void read_on(followed_file *file)
{
    std::ifstream in(file->path);
    in.seekg(0, std::ios::end);
    if (in.tellg() < file->offset) // begun anew
        file->offset = 0;
    in.seekg(file->offset);
    char part[4096];
    while (in.read(part, sizeof part), in.gcount() > 0) {
        file->offset += in.gcount();
        file->rest.append(part, static_cast<size_t>(in.gcount()));
    }
    for (size_t end; (end = file->rest.find('\n')) != std::string::npos;) {
        const std::string line = file->rest.substr(0, end);
        file->rest.erase(0, end + 1);
        file->take(line);
    }
}

static std::string first_word_of(const std::string &path)
{
    std::string word;
    std::ifstream(path) >> word;
    return word;
}

// Files.

static int watches;
static int etc_config_watch, tmp_watch, flags_watch, var_log_watch;

static void watch_led_flags()
{
    flags_watch = inotify_add_watch(watches, LED_FLAGS, IN_CLOSE_WRITE);
}

static void note_led(const std::string &name)
{
    add(kind::led, name + " " + first_word_of(std::string(LED_FLAGS) + "/" + name));
}

static void note_tmp(const inotify_event *seen)
{
    const std::string name = seen->name;
    if (name == "debug_tarn_net.log") {
        if ((seen->mask & IN_CREATE) != 0)
            daemon_log.offset = 0;
        read_on(&daemon_log);
    } else if (name == "led_flags" && (seen->mask & IN_CREATE) != 0) {
        watch_led_flags();
    }
}

static void note_watch(const inotify_event *seen)
{
    if (seen->len == 0)
        return;
    if (seen->wd == tmp_watch)
        note_tmp(seen);
    else if (seen->wd == var_log_watch && strcmp(seen->name, "journal") == 0)
        read_on(&journal);
    else if (seen->wd == flags_watch)
        note_led(seen->name);
    else if (seen->wd == etc_config_watch && seen->name[0] != '.')
        add(kind::commit, seen->name);
}

static void watches_cb(uloop_fd *fd, unsigned)
{
    alignas(inotify_event) char buffer[8192];
    for (ssize_t length; (length = read(fd->fd, buffer, sizeof buffer)) > 0;) {
        for (const char *at = buffer; at < buffer + length;) {
            const auto *seen = reinterpret_cast<const inotify_event *>(at);
            note_watch(seen);
            at += sizeof *seen + seen->len;
        }
    }
}

static bool follow_files()
{
    watches = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    etc_config_watch = inotify_add_watch(watches, "/etc/config", IN_MOVED_TO);
    tmp_watch = inotify_add_watch(watches, "/tmp", IN_MODIFY | IN_CREATE);
    var_log_watch = inotify_add_watch(watches, "/var/log", IN_MODIFY | IN_CREATE);
    watch_led_flags(); // may not be there yet
    static uloop_fd fd{};
    fd.fd = watches;
    fd.cb = watches_cb;
    return etc_config_watch >= 0 && tmp_watch >= 0 && var_log_watch >= 0 &&
           uloop_fd_add(&fd, ULOOP_READ) == 0;
}

// Kernel rules.

struct rule_facts {
    unsigned priority = 0, table = 0;
    std::string iif;
};

static rule_facts read_rule(const nlmsghdr *message)
{
    const auto *header = static_cast<const fib_rule_hdr *>(NLMSG_DATA(message));
    rule_facts facts;
    facts.table = header->table;
    auto length = static_cast<int>(message->nlmsg_len - NLMSG_LENGTH(sizeof *header));
    const auto *attribute = reinterpret_cast<const rtattr *>(header + 1);
    for (; RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type == FRA_PRIORITY)
            memcpy(&facts.priority, RTA_DATA(attribute), sizeof facts.priority);
        else if (attribute->rta_type == FRA_TABLE)
            memcpy(&facts.table, RTA_DATA(attribute), sizeof facts.table);
        else if (attribute->rta_type == FRA_IIFNAME)
            facts.iif = static_cast<const char *>(RTA_DATA(attribute));
    }
    return facts;
}

static void note_rule(const nlmsghdr *message)
{
    if (message->nlmsg_type != RTM_NEWRULE && message->nlmsg_type != RTM_DELRULE)
        return;
    const rule_facts facts = read_rule(message);
    if (facts.priority != RULE_PRIORITY)
        return;
    const std::string from = facts.iif.empty() ? "from all" : "from all iif " + facts.iif;
    add(kind::rule, (message->nlmsg_type == RTM_NEWRULE ? "add " : "delete ") + from + " lookup " +
                        std::to_string(facts.table));
}

static void rules_cb(uloop_fd *fd, unsigned)
{
    alignas(nlmsghdr) char buffer[16384];
    for (ssize_t length; (length = recv(fd->fd, buffer, sizeof buffer, MSG_DONTWAIT)) > 0;) {
        auto left = static_cast<unsigned>(length);
        const auto *message = reinterpret_cast<const nlmsghdr *>(buffer);
        for (; NLMSG_OK(message, left); message = NLMSG_NEXT(message, left))
            note_rule(message);
    }
}

static bool follow_rules()
{
    static uloop_fd fd{};
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1U << (RTNLGRP_IPV4_RULE - 1);
    fd.fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    fd.cb = rules_cb;
    return bind(fd.fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
           uloop_fd_add(&fd, ULOOP_READ) == 0;
}

// The bus.

static ubus_context *bus;

static void try_bus(uloop_timeout *timer);
static uloop_timeout bus_timer{.list = {}, .pending = false, .cb = try_bus, .time = {}};

static void event_cb(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg)
{
    const std::string name = type;
    // What the broker and netifd say of themselves is not the daemon's doing.
    if (name.starts_with("ubus.") || name == "network.interface")
        return;
    char *json = blobmsg_format_json(msg, true);
    add(kind::event, name + " " + (json ? json : ""));
    free(json);
}

static ubus_event_handler event_handler{.obj = {}, .cb = event_cb};

static void lost_cb(ubus_context *)
{
    uloop_timeout_set(&bus_timer, RECONNECT_MS);
}

static void try_bus(uloop_timeout *)
{
    if (bus)
        ubus_free(bus);
    bus = ubus_connect(nullptr);
    if (!bus) {
        uloop_timeout_set(&bus_timer, RECONNECT_MS);
        return;
    }
    bus->connection_lost = lost_cb;
    event_handler = {.obj = {}, .cb = event_cb};
    ubus_register_event_handler(bus, &event_handler, "*");
    ubus_add_uloop(bus);
}

const std::vector<entry> &timeline_entries()
{
    return entries;
}

std::span<const entry> timeline_since(size_t index)
{
    return std::span(entries).subspan(index);
}

const char *kind_name(kind what)
{
    static const char *const names[] = {"command", "stats", "event", "commit", "rule",
                                        "led",     "log",   "peer",  "ended",  "--"};
    return names[static_cast<int>(what)];
}

double timeline_now()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return timeline_at(seconds(now));
}

double timeline_at(double boot_s)
{
    return boot_s - seconds(started);
}

bool timeline_start()
{
    clock_gettime(CLOCK_BOOTTIME, &started);
    // Children get the usual priority.
    const sched_param priority{.sched_priority = 20};
    if (sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &priority) != 0)
        fprintf(stderr, "no real-time priority, the order of entries may be wrong: %s\n",
                strerror(errno));
    if (follow_files() && follow_rules())
        return true;
    fprintf(stderr, "cannot follow what happens: %s\n", strerror(errno));
    return false;
}

void timeline_follow_bus()
{
    try_bus(nullptr);
}

void timeline_tell(const std::string &text)
{
    add(kind::story, text);
}
