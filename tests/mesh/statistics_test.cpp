// Collecting the gateway facts: the command lines, what the child may touch, what becomes of a
// batctl that has no gateway, hangs or answers nonsense; and the lonely scan's trigger.
#include <dlfcn.h>

#include "mesh/mesh.h"
#include "platform/zu/led.h"
#include "support/eventually.h"
#include "wired/node_fixture.h"

/// A node that is out of processes.
static bool gNo_process;
extern "C" pid_t fork() noexcept
{
    static const auto real = reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"));
    return gNo_process ? -1 : real();
}

namespace {

using lines = std::vector<std::string>;

constexpr char MAC[] = "02:11:00:00:00:01";
constexpr int LIMIT_MS = 30000;
constexpr int INTERVAL_MS = 150000;

struct Statistics : node_fixture {
    void SetUp() override
    {
        node_fixture::SetUp();
        run("rm -rf /var/sim/batctl /var/sim/delay/batctl /tmp/mesh.info; mkdir -p "
            "/var/sim/batctl");
        answer_well();
    }
    static void answer_well()
    {
        answer("gwl", std::string("[B.A.T.M.A.N. adv]\n* ") + MAC + " ( 251) " + MAC +
                          " [ mesh1]: 10.0/2.0 MBit\n");
        answer("tr", std::string("traceroute to ") + MAC +
                         "\n 1: 02:11:00:00:00:02  1.5 ms  0.1 ms  0.1 ms\n 2: " + MAC +
                         "  1 ms\n");
        answer("p", "PING\n5 packets\nrtt min/avg/max/mdev = 0.072/1.511/2.1/0.1 ms\n");
        answer("tp", "Test duration 3120ms.\nThroughput: 156.84 MB/s (1315.68 Mbps)\n");
    }
    static void answer(const char *name, const std::string &text)
    {
        write_file(std::string("/var/sim/batctl/") + name, text);
    }
    static mesh_state &mesh() { return gTarn_net_state.mesh; }
    static bool collecting() { return mesh().stats_child.pid != 0; }
    void collect()
    {
        uloop_clock_virtual(true); // which stands still
        fork_and_execute_batctl_cmds(nullptr);
        ASSERT_TRUE(collecting());
        EXPECT_EQ(uloop_timeout_remaining64(&mesh().stats_timer), LIMIT_MS);
        uloop_clock_virtual(false);
        run_until([] { return !collecting(); });
        EXPECT_EQ(mesh().stats_timer.cb, fork_and_execute_batctl_cmds) << "the next one is armed";
        EXPECT_GT(uloop_timeout_remaining64(&mesh().stats_timer), LIMIT_MS);
    }
    /// Starts a collection whose first command does not come back.
    void collect_and_hang()
    {
        write_file("/var/sim/delay/batctl", "1000\n");
        fork_and_execute_batctl_cmds(nullptr);
        ASSERT_TRUE(eventually([] { return run("pgrep -f '[s]leep 1000'").status == 0; }));
    }
    static std::string facts()
    {
        std::string text;
        const mesh_gateway_facts &known = mesh().gateway;
        for (const char *fact : {known.mac, known.quality, known.route, known.latency, known.speed})
            text += (text.empty() ? "" : " ") + std::string(fact ? fact : "-");
        return text;
    }
};

const std::string ALL_FACTS =
    std::string(MAC) + " 251 02:11:00:00:00:02," + MAC + " 1.511 156.84-MB/s";

} // namespace

TEST_F(Statistics, RunsTheseCommandsAndKeepsTheirFacts)
{
    collect();
    const std::string mac = MAC;
    EXPECT_EQ(commands(), (lines{"batctl gwl -n", "batctl tr -n -T " + mac,
                                 "batctl p -T -c 5 " + mac, "batctl tp -t 3000 -n " + mac}));
    EXPECT_EQ(facts(), ALL_FACTS);
    EXPECT_TRUE(logged("Finished collecting gateway statistics in repeater with batctl calls"));
}

TEST_F(Statistics, WhatBatctlAnswersWrongReachesNeitherFactsNorACommandLine)
{
    const std::string mac = MAC, of_gateway = "* " + mac + " ( 251) x\n",
                      malformed = "is not properly formatted";
    const struct {
        std::string gwl, tr;
        size_t commands;
        std::string facts, logged;
    } cases[] = {
        {"[B.A.T.M.A.N. adv, MainIF/MAC: mesh1/02:11:00:00:00:07]\n", "", 1, ALL_FACTS, ""},
        {"* $(reboot) ( 251) x\n", "", 1, "- ", malformed},
        {"* `id` ( 251) x\n", "", 1, "- ", malformed},
        {"* 02:11:00:00:00 ( 251) x\n", "", 1, "- ", malformed},
        {"* 002:11:00:00:00:01 ( 251) x\n", "", 1, "- ", malformed},
        {"* -h ( 251) x\n", "", 1, "- ", malformed},
        {"* " + mac + ";reboot ( 251) x\n", "", 4, "- ", ""},
        {"* " + std::string(5000, '\x01') + "\n", "", 1, "- ", ""},
        {of_gateway, "1: nonsense\n2: $(reboot)\n", 4, mac + " 251 - 1.511", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.gwl.substr(0, 40));
        answer_well();
        collect();
        (void)commands();
        log.clear();
        answer("gwl", c.gwl);
        if (!c.tr.empty())
            answer("tr", c.tr);
        collect();
        const lines ran = commands();
        EXPECT_EQ(ran.size(), c.commands);
        for (const std::string &command : ran)
            EXPECT_EQ(command.find("reboot"), std::string::npos) << command;
        EXPECT_TRUE(facts().starts_with(c.facts)) << facts();
        EXPECT_TRUE(logged(c.logged));
    }
    answer("p", "a/b/c/d/e/f\n");
    answer("tp", "Throughput: much (very)\n");
    collect();
    EXPECT_EQ(facts(), mac + " 251 - - -");
}

TEST_F(Statistics, HungBatctlIsKilledWithItsGroup)
{
    collect();
    // What the chain has found before it hangs is still parsed.
    write_file("/tmp/bin/batctl", "#!/bin/sh\n[ \"$1\" != tr ] || exec sleep 4242\n"
                                  "exec /usr/bin/env PATH=\"${PATH#/tmp/bin:}\" batctl \"$@\"\n");
    run("chmod +x /tmp/bin/batctl");
    fork_and_execute_batctl_cmds(nullptr);
    ASSERT_TRUE(eventually([] { return run("pgrep -f '[s]leep 4242'").status == 0; }));
    uloop_clock_virtual(true);
    uloop_clock_run_ms(LIMIT_MS + 10);
    uloop_clock_virtual(false);
    run_until([] { return !collecting(); });
    EXPECT_TRUE(logged("The batctl cmds collecting gateway statistics timed out."));
    EXPECT_EQ(facts(), std::string(MAC) + " 251 - - -");
    EXPECT_TRUE(eventually([] { return run("pgrep -f '[s]leep 4242'").status != 0; }));
    run("rm /tmp/bin/batctl");
}

TEST_F(Statistics, ChildHoldsNothingOfTheDaemonsButItsLog)
{
    write_file(log.path, std::string(LOG_FILE_LIMIT, 'x') + "\n");
    collect_and_hang();
    const std::string files = "/proc/" + std::to_string(mesh().stats_child.pid) + "/fd";
    EXPECT_EQ(run("for f in " + files + "/[3-9] " + files +
                  "/[1-9][0-9]; do [ ! -e $f ] || "
                  "readlink $f; done")
                  .output,
              log.path + "\n");
    run("rm /var/sim/delay/batctl; pkill -f '[s]leep 1000'");
    ASSERT_TRUE(
        eventually([this] { return logged("Calling batctl to collect gateway statistics"); }));
    EXPECT_NE(access((log.path + ".1").c_str(), F_OK), 0) << "only the daemon starts its log anew";
    run_until([] { return !collecting(); });
    EXPECT_EQ(access((log.path + ".1").c_str(), F_OK), 0);
    EXPECT_EQ(facts(), ALL_FACTS);
}

TEST_F(Statistics, SpeedIsLowOnlyForARepeater)
{
    const struct {
        uint32_t state;
        const char *speed;
        const char *low;
    } cases[] = {
        {TARN_NET_UPSTREAM_MESH_STATE, "200.00 KB/s (1.64 Mbps)", "1"},
        {TARN_NET_UPSTREAM_MESH_STATE, "250.00 KB/s (2.05 Mbps)", "0"},
        {TARN_NET_UPSTREAM_MESH_STATE, "900 Bytes/s (7200 Bps)", "1"},
        {TARN_NET_UPSTREAM_WAN_STATE, "0 Bytes/s (0 Bps)", "0"},
        {TARN_NET_LONELY_ORPHAN_STATE, "12.00 KB/s (0.1 Mbps)", "0"},
        {TARN_NET_UPSTREAM_NONE, "12.00 KB/s (0.1 Mbps)", "0"},
        {TARN_NET_UPSTREAM_MESH_STATE, "", "0"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(upstream_state_name(c.state)) + " " + c.speed);
        update_led_flag("low_mesh_speed", c.low[0] == '0');
        test().upstream_state = c.state;
        answer("tp", std::string("Throughput: ") + c.speed + "\n");
        collect();
        EXPECT_EQ(led("low_mesh_speed"), c.low);
    }
}

TEST_F(Statistics, WithoutAProcessToCollectTheNextIntervalTriesAgain)
{
    gNo_process = true;
    uloop_clock_virtual(true);
    init_mesh_info();
    uloop_clock_run_ms(2 * INTERVAL_MS);
    EXPECT_EQ(logged("Failed to create a fork"), 2);
    gNo_process = false;
    uloop_clock_run_ms(INTERVAL_MS - 1);
    EXPECT_FALSE(collecting());
    uloop_clock_run_ms(1);
    EXPECT_TRUE(collecting());
}

TEST_F(Statistics, ResetKillsTheCollectionThatRuns)
{
    collect_and_hang();
    inet_test_reset();
    EXPECT_FALSE(collecting());
    EXPECT_FALSE(mesh().stats_timer.pending);
    EXPECT_TRUE(eventually([] { return run("pgrep -f '[s]leep 1000'").status != 0; }));
}

TEST_F(Statistics, CollectionEndsWithTheDaemon)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    write_file("/var/sim/delay/batctl", "1000\n");
    const pid_t other = fork();
    if (other == 0) {
        fork_and_execute_batctl_cmds(nullptr);
        const pid_t child = mesh().stats_child.pid;
        (void)!write(ends[1], &child, sizeof child);
        pause();
        _exit(1);
    }
    pid_t child = 0;
    ASSERT_EQ(read(ends[0], &child, sizeof child), static_cast<ssize_t>(sizeof child));
    ASSERT_TRUE(eventually([] { return run("pgrep -f '[s]leep 1000'").status == 0; }));
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    EXPECT_TRUE(eventually([&] { return kill(-child, 0) < 0 && errno == ESRCH; }));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(Statistics, LonelyScanIsStartedEveryMinuteWhateverComesOfIt)
{
    lonely_periodic_trigger_cb(nullptr);
    EXPECT_EQ(commands(), lines{"/etc/init.d/lonely start"});
    EXPECT_FALSE(logged("onely scan"));
    run("mkdir -p /var/sim/exit/etc/init.d; echo 3 >/var/sim/exit/etc/init.d/lonely");
    uloop_clock_virtual(true);
    uloop_clock_run_ms(59000);
    EXPECT_EQ(commands(), lines{});
    uloop_clock_run_ms(2000);
    EXPECT_EQ(commands(), lines{"/etc/init.d/lonely start"});
    EXPECT_TRUE(logged("Lonely scan exited with rc 3"));
    uloop_clock_run_ms(60000);
    EXPECT_EQ(commands(), lines{"/etc/init.d/lonely start"});
    EXPECT_EQ(mesh().lonely_trigger_count, 3);
    run("rm -r /var/sim/exit/etc; /etc/init.d/lonely stop");
}
