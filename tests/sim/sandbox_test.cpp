// The sandbox itself, tried from inside one: what holds for a sandbox in a sandbox holds on a host.
#include "programs.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

static const std::string SANDBOX = std::string(getenv("TARN_SOURCE")) + "/sim/sandbox/run ";

TEST(Sandbox, PassesStatusArgumentsAndInputThrough)
{
    EXPECT_EQ(run(SANDBOX + "sh -c 'exit 7'").status, 7);
    EXPECT_EQ(run(SANDBOX + "sh -c 'kill -SEGV $$'").status, 128 + SIGSEGV);
    EXPECT_EQ(run(SANDBOX + "printf '%s|' 'two words' '*'").output, "two words|*|");
    EXPECT_EQ(run("echo hello | " + SANDBOX + "cat").output, "hello\n");
    EXPECT_EQ(run(SANDBOX + "/no/such/program").status, 1);
}

TEST(Sandbox, StartsFromTheTemplateEveryTime)
{
    write_text("/tmp/outer", "outer");
    write_text("/etc/config/tarn_net", "changed outside");
    EXPECT_EQ(run(SANDBOX + "ls /tmp/outer").status, 2);
    EXPECT_NE(run(SANDBOX + "cat /etc/config/tarn_net").output.find("inet_test_targets"),
              std::string::npos);
    EXPECT_EQ(run(SANDBOX + "cat /sys/class/gpio/dc_detect/value /sys/class/gpio/poe_at_detect/"
                            "value")
                  .output,
              "1\n0\n");
}

TEST(Sandbox, ChangesStayInside)
{
    run(SANDBOX + "sh -c 'echo x >/etc/config/leak; echo x >/tmp/leak; echo x >/var/state/leak;"
                  " echo 0 >/sys/class/gpio/dc_detect/value'");
    for (const char *path : {"/etc/config/leak", "/tmp/leak", "/var/state/leak"})
        EXPECT_EQ(read_text(path), "") << path;
    EXPECT_EQ(read_text("/sys/class/gpio/dc_detect/value"), "1\n");
    EXPECT_NE(run(SANDBOX + "touch /usr/bin/leak").status, 0);
    EXPECT_NE(run(SANDBOX + "touch $TARN_SOURCE/leak").status, 0);
}

TEST(Sandbox, HasItsOwnNetwork)
{
    EXPECT_EQ(run(SANDBOX + "sh -c 'ip link add outside type bridge; ip rule add priority 500 "
                            "table 10'")
                  .status,
              0);
    EXPECT_NE(run("ip link show outside").status, 0);
    EXPECT_EQ(run("ip rule show priority 500").output, "");
    EXPECT_EQ(run(SANDBOX + "ls /sys/class/net").output, "lo\n");
    EXPECT_EQ(run(SANDBOX + "cat /sys/class/net/lo/flags").output, "0x9\n") << "lo is not up";
}

TEST(Sandbox, FindsItsOwnCommandsFirst)
{
    EXPECT_EQ(run(SANDBOX + "sh -c 'batctl gw_mode server; batctl gw_mode; /etc/init.d/lonely "
                            "start; kill -0 $(cat /var/run/lonely.pid) && cut -d\" \" -f2- "
                            "/var/log/journal'")
                  .output,
              "server (announced bw: 10.0/2.0 MBit)\nbatctl gw_mode server\nbatctl gw_mode\n"
              "/etc/init.d/lonely start\n");
    EXPECT_EQ(run(SANDBOX + "sh -c 'echo 4 >/var/sim/exit/reload_config; reload_config'").status,
              4);
}

TEST(Sandbox, LeavesNothingBehind)
{
    std::string mounts = read_text("/proc/self/mountinfo");
    EXPECT_EQ(run(SANDBOX + "sh -c 'sleep 4242 & exit 3'").status, 3);
    EXPECT_EQ(run("pgrep -f 'sleep 424[2]'").output, "");

    program killed({"sh", "-c", "exec " + SANDBOX + "sh -c 'sleep 4343; :'"});
    ASSERT_TRUE(eventually([] { return run("pgrep -f '^sleep 434[3]'").status == 0; }));
    killed.end(SIGKILL);
    EXPECT_TRUE(eventually([] { return run("pgrep -f 'sleep 434[3]'").status == 1; }));
    EXPECT_EQ(read_text("/proc/self/mountinfo"), mounts);
}

TEST(Sandbox, ManyRunAtOnce)
{
    outcome all = run("for i in 1 2 3 4 5 6; do " + SANDBOX +
                      "sh -c 'echo mine >>/tmp/shared; sleep 0.1; cat /tmp/shared' & done; wait");
    EXPECT_EQ(all.output, "mine\nmine\nmine\nmine\nmine\nmine\n");
}

TEST(Sandbox, SaysSoWhereNamespacesAreForbidden)
{
    run("mkdir -p /tmp/forbidden && printf '#!/bin/sh\\nexit 1\\n' >/tmp/forbidden/unshare &&"
        " chmod +x /tmp/forbidden/unshare");
    outcome refused = run("PATH=/tmp/forbidden:$PATH " + SANDBOX + "true");
    EXPECT_EQ(refused.status, 77);
    EXPECT_NE(refused.output.find("forbids namespaces"), std::string::npos);
}
