// Collects the gateway facts every 150 s by running batctl, without ever blocking the loop.
//
//     idle ── 150 s ──► child running ── ends, or is killed after 30 s ──► parsed ──► idle
//
// The commands take seconds and may hang (a traceroute over a dead link runs for minutes), so a
// forked child runs them one after the other. It leads a process group of its own: when its time is
// over, the group is killed, batctl included.

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/prctl.h>
#include <unistd.h>

#include "mesh/gateway_facts.h"
#include "mesh/mesh.h"
#include "mesh/mesh_internal.h"
#include "platform/zu/file.h"
#include "platform/zu/led.h"
#include "platform/zu/log.h"
#include "platform/zu/mac.h"
#include "platform/zu/shell.h"
#include "state/owned.h"

constexpr const char *MESH_INFO_FILE = "/tmp/mesh.info";
constexpr size_t MESH_INFO_MAX = 256;
constexpr int STATS_INTERVAL_MS = 150000;
constexpr int STATS_LIMIT_MS = 30000;
constexpr int NO_GATEWAY = -61; // ENODATA: the parent sees exit status 195
constexpr int NO_GATEWAY_STATUS = 195;

constexpr const char *FIND_GATEWAY =
    R"(batctl gwl -n 2>/dev/null | grep -e "^[*]" | tail -n 1 | )"
    R"(awk '/\*/ {tq=$3;if (tq == "(") tq=$4;gsub(/[()]/,"",tq);printf("gwm|%s gwq|%s", $2, tq)}' | )"
    R"(tr -d '\(\)' > /tmp/mesh.info)";

static mesh_state &gMesh = gTarn_net_state.mesh;

// A command line with the gateway's MAC in its middle.
struct gateway_command {
    const char *before;
    const char *after;
    const char *failed;
};

constexpr std::array<gateway_command, 3> GATEWAY_COMMANDS = {{
    {"batctl tr -n -T ",
     R"( 2>/dev/null | awk -F' ' 'BEGIN {printf(" tr|")} )"
     R"({if (NR > 1) {if (NR > 2) {printf(",")}; printf("%s", $2)}}' >&2 >> /tmp/mesh.info)",
     "Failed to call batctl to find the gateway route"},
    {"batctl p -T -c 5 ",
     R"( 2>/dev/null | awk 'END {split($0, a, "/"); printf(" p|%s", a[5])}' >&2 >> /tmp/mesh.info)",
     "Failed to call batctl to find the gateway latency"},
    {"batctl tp -t 3000 -n ",
     R"( 2>/dev/null | awk -F' ' '/Throughput:/ {printf(" tp|%s-%s", $2, $3)}' | )"
     R"(tr -d '()' >&2 >> /tmp/mesh.info)",
     "Failed to call batctl to find the gateway throughput"},
}};

/// The gateway's MAC out of the first token, or an empty text: only what is exactly a MAC may
/// become part of a command line.
static std::string_view gateway_mac(std::string_view text)
{
    const std::string_view token = text.substr(0, text.find(' '));
    if (!token.starts_with("gwm|") || !zu_text_is_mac(token.substr(4)))
        return {};
    return token.substr(4);
}

static int run_gateway_command(const gateway_command &command, const char *mac)
{
    char line[192];
    const int length = snprintf(line, sizeof(line), "%s%s%s", command.before, mac, command.after);
    if (length > 0 && static_cast<size_t>(length) < sizeof(line) && shell_run_in_group(line))
        return 0;
    log_error("%s", command.failed);
    return 1;
}

/// Runs in the child; its result becomes the child's exit status. A batctl that fails is not a
/// failure: its fact is then missing from the file.
static int execute_batctl_cmds()
{
    if (!shell_run_in_group(FIND_GATEWAY))
        return 1;
    char head[sizeof("gwm|02:00:00:00:00:00")] = {};
    if (file_read_bin(MESH_INFO_FILE, head, sizeof(head) - 1) <= 0)
        return NO_GATEWAY;
    log_debug("Calling batctl to collect gateway statistics in repeater mode");
    const std::string_view mac_view = gateway_mac(head);
    if (mac_view.empty()) {
        log_warning("gateway_mac_cmd '%s' is not properly formatted", head);
        return -1;
    }
    const std::string mac(mac_view);
    for (const gateway_command &command : GATEWAY_COMMANDS)
        if (run_gateway_command(command, mac.c_str()) != 0)
            return 1;
    return 0;
}

static void end_group(int)
{
    kill(0, SIGKILL);
}

/// Nobody is left to bound the collection when the parent has died: it ends then.
static void die_with_parent(pid_t parent)
{
    signal(SIGTERM, end_group);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) // it was faster
        _exit(1);
}

/// The child keeps nothing of the parent's but the log: with the bus connection left open here, the
/// broker would not notice the parent's death.
static void leave_parent(pid_t parent)
{
    setpgid(0, 0);
    uloop_done();
    die_with_parent(parent);
    zu_log_after_fork();
    const int log_fd = gDebug_file ? fileno(gDebug_file) : -1;
    const long limit = sysconf(_SC_OPEN_MAX);
    for (int fd = STDERR_FILENO + 1; fd < limit && fd < 4096; fd++)
        if (fd != log_fd)
            close(fd);
}

static void kill_collection()
{
    if (kill(-gMesh.stats_child.pid, SIGKILL) != 0 && kill(gMesh.stats_child.pid, SIGKILL) != 0)
        log_error("Failed to kill the batctl cmds fork, '%s'", strerror(errno));
}

static void fork_and_execute_batctl_cmds_timeout_cb(uloop_timeout *)
{
    kill_collection();
}

static int parse_batctl_cmds_output()
{
    char text[MESH_INFO_MAX];
    const ssize_t length = file_read_bin(MESH_INFO_FILE, text, sizeof(text));
    int result = mesh_gateway_facts_parse(&gMesh.gateway,
                                          {text, length > 0 ? static_cast<size_t>(length) : 0});
    bool known = false;
    const bool low = mesh_gateway_speed_is_low(&gMesh.gateway, &known);
    if (!known)
        result = -1;
    update_led_flag("low_mesh_speed", low && gTarn_net_state.inet_test.upstream_state ==
                                                 TARN_NET_UPSTREAM_MESH_STATE);
    log_debug("batctl data updated");
    return result;
}

static void fork_and_execute_batctl_cmds_complete_cb(uloop_process *child, int status)
{
    const bool timed_out = !gMesh.stats_timer.pending;
    uloop_timeout_cancel(&gMesh.stats_timer);
    child->pid = 0;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != NO_GATEWAY_STATUS) {
        if (timed_out)
            log_warning("The batctl cmds collecting gateway statistics timed out. The parsed "
                        "gateway statistics will be incomplete.");
        if (parse_batctl_cmds_output() != 0)
            log_error("Failed to parse and save batctl cmd output");
        else
            log_debug("Finished collecting gateway statistics in repeater with batctl calls");
    }
    mesh_statistics_arm();
}

void fork_and_execute_batctl_cmds(uloop_timeout *)
{
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        log_error("Failed to create a fork to generate the mesh.info file with batctl cmds");
        mesh_statistics_arm(); // there may be a process to be had then
        return;
    }
    if (pid == 0) {
        leave_parent(parent);
        _exit(execute_batctl_cmds() & 0xff);
    }
    setpgid(pid, pid); // here as well: the kill must find the group whoever runs first
    gMesh.stats_child.pid = pid;
    gMesh.stats_child.cb = fork_and_execute_batctl_cmds_complete_cb;
    uloop_process_add(&gMesh.stats_child);
    gMesh.stats_timer.cb = fork_and_execute_batctl_cmds_timeout_cb;
    uloop_timeout_set(&gMesh.stats_timer, STATS_LIMIT_MS);
}

void mesh_statistics_arm()
{
    gMesh.stats_timer.cb = fork_and_execute_batctl_cmds;
    uloop_timeout_set(&gMesh.stats_timer, STATS_INTERVAL_MS);
}

void mesh_statistics_abandon()
{
    uloop_timeout_cancel(&gMesh.stats_timer);
    if (gMesh.stats_child.pid == 0)
        return;
    kill_collection();
    uloop_process_delete(&gMesh.stats_child);
    gMesh.stats_child.pid = 0;
}

void mesh_clear_gateway_info()
{
    mesh_gateway_facts_clear(&gMesh.gateway);
}
