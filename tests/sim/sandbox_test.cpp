// The sandbox itself, tried from inside one: what holds for a sandbox in a sandbox holds on a host.
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>

#include "support/eventually.h"
#include "support/program.h"
#include "support/run.h"
#include "support/temporary_directory.h"

static const std::string SANDBOX = "'" + std::string(getenv("TARN_SOURCE")) + "/sim/sandbox/run' ";

TEST(Sandbox, PassesStatusArgumentsAndInputThrough)
{
    EXPECT_EQ(run(SANDBOX + "sh -c 'exit 7'").status, 7);
    EXPECT_EQ(run(SANDBOX + "sh -c 'kill -SEGV $$'").status, 128 + SIGSEGV);
    EXPECT_EQ(run(SANDBOX + "printf '%s|' 'two words' '*'").output, "two words|*|");
    EXPECT_EQ(run("echo hello | " + SANDBOX + "cat").output, "hello\n");
    EXPECT_EQ(run(SANDBOX + "/no/such/program").status, 1);
}

TEST(Sandbox, StartsFromTheTemplateAndChangesStayInside)
{
    write_file("/tmp/outer", "outer");
    write_file("/etc/config/tarn_net", "changed outside");
    const outcome inside =
        run(SANDBOX + "sh -c 'ls /tmp/outer; grep -cm1 inet_test_targets /etc/config/tarn_net;"
                      " cat /sys/class/gpio/dc_detect/value; ls /sys/class/net;"
                      " for f in /etc/config/leak /tmp/leak /var/state/leak"
                      " /sys/class/gpio/dc_detect/value; do echo 0 >$f; done;"
                      " ip link add outside type bridge; ip rule add priority 500 table 10;"
                      " touch /usr/bin/leak || touch $TARN_SOURCE/leak || exit 3' 2>/dev/null");
    EXPECT_EQ(inside.status, 3);
    EXPECT_EQ(inside.output, "1\n1\nlo\n");
    for (const char *path : {"/etc/config/leak", "/tmp/leak", "/var/state/leak"})
        EXPECT_EQ(read_file(path), "") << path;
    EXPECT_EQ(read_file("/sys/class/gpio/dc_detect/value"), "1\n");
    EXPECT_NE(run("ip link show outside").status, 0);
    EXPECT_EQ(run("ip rule show priority 500").output, "");
}

TEST(Sandbox, LeavesNothingBehind)
{
    std::string mounts = read_file("/proc/self/mountinfo");
    EXPECT_EQ(run(SANDBOX + "sh -c 'sleep 4242 & exit 3'").status, 3);
    EXPECT_EQ(run("pgrep -f 'sleep 424[2]'").output, "");

    program killed({"sh", "-c", "exec " + SANDBOX + "sh -c 'sleep 4343; :'"});
    ASSERT_TRUE(eventually([] { return run("pgrep -f '^sleep 434[3]'").status == 0; }));
    killed.end(SIGKILL);
    EXPECT_TRUE(eventually([] { return run("pgrep -f 'sleep 434[3]'").status == 1; }));
    EXPECT_EQ(read_file("/proc/self/mountinfo"), mounts);
}

TEST(Sandbox, SaysSoWhereNamespacesAreForbidden)
{
    run("mkdir -p /tmp/forbidden && printf '#!/bin/sh\\nexit 1\\n' >/tmp/forbidden/unshare &&"
        " chmod +x /tmp/forbidden/unshare");
    outcome refused = run("PATH=/tmp/forbidden:$PATH " + SANDBOX + "true");
    EXPECT_EQ(refused.status, 77);
    EXPECT_NE(refused.output.find("forbids namespaces"), std::string::npos);
}
