// The end of the process, or of the disk's room, at every single call of a push and of the
// application of a delayed one that changes a file: after the next start the push is in force whole
// or not at all.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>

#include "support/run.h"
#include "support/temporary_directory.h"

namespace {

using packages = std::map<std::string, std::string>;

packages configured()
{
    packages all;
    for (const auto &entry : std::filesystem::directory_iterator("/etc/config"))
        if (const std::string name = entry.path().filename(); name[0] != '.')
            all[name] = read_file(entry.path());
    return all;
}

void configure(const packages &all)
{
    run("rm -rf /etc/config/* /etc/config/.[a-z]* /tmp/.uci/* /tmp/wifi-delayed-*");
    for (const auto &[name, text] : all)
        write_file("/etc/config/" + name, text);
}

std::string push(const std::string &arguments)
{
    return "'" PUSH_FILE_PROGRAM "' " + arguments + " >/dev/null 2>&1";
}

std::string with_fault(const std::string &command, int at, bool full)
{
    return "FAULT_AT=" + std::to_string(at) + (full ? " FAULT_FULL=1" : "") +
           " LD_PRELOAD=/tmp/fault_at.so " + command + " 9>/tmp/calls";
}

struct crash_case {
    const char *what;
    const char *option, *file;
};

void PrintTo(const crash_case &c, std::ostream *out)
{
    *out << c.what;
}

struct Crash : testing::TestWithParam<crash_case> {
    packages before, waiting, after; // waiting: after a delayed push, before its application
    std::string command = push(std::string(GetParam().option) + GetParam().file);
    int calls = 0;

    void SetUp() override
    {
        run("cp \"$TARN_SOURCE\"/sim/root/etc/config/* /etc/config/; "
            "cp '" FAULT_AT_LIBRARY "' /tmp/fault_at.so; " // LD_PRELOAD takes no blanks
            "sed -i /inet_test_targets/d /etc/config/tarn_net");
        run(push("'" EXAMPLES_DIR "/mesh_repeater.json'"));
        before = configured();
        run(push(GetParam().file));
        waiting = configured();
        configure(before);
        ASSERT_EQ(run(with_fault(command, 0, false)).status, 0);
        after = configured();
        calls = atoi(read_file("/tmp/calls").c_str());
        ASSERT_GT(calls, 20);
        ASSERT_NE(before.at("wireless"), after.at("wireless"));
    }
    /// Every package is what it was or what it was to become.
    void expect_old_or_new(const std::string &when)
    {
        const packages now = configured();
        ASSERT_EQ(before.size(), now.size()) << when;
        for (const auto &[name, text] : now)
            EXPECT_TRUE(text == before.at(name) || text == waiting.at(name) ||
                        text == after.at(name))
                << name << when;
    }
    static void expect_nothing_left(const std::string &when)
    {
        EXPECT_EQ(run("find /tmp -name 'wifi-delayed-*'; find /etc/config -name '.*'; "
                      "cat /tmp/.uci/* 2>/dev/null")
                      .output,
                  "")
            << when;
    }
    void fault_at_every_call(bool full)
    {
        const int step = full ? 3 * SAMPLE : SAMPLE; // most calls fail alike
        for (int at = 1; at <= calls && !HasFailure(); at += step) {
            const std::string when = " at call " + std::to_string(at);
            configure(before);
            const int status = run(with_fault(command, at, full)).status;
            if (!full) {
                EXPECT_EQ(128 + SIGKILL, status) << when;
            }
            expect_old_or_new(when);
            ASSERT_EQ(run(push("")).status, 0) << when; // the daemon starts again
            const packages now = configured();
            EXPECT_TRUE(now == before || now == waiting || now == after)
                << "half a push after the restart" << when;
            expect_nothing_left(when);
            ASSERT_EQ(run(command).status, 0) << when;
            expect_nothing_left(" and the push again" + when);
            for (const auto &[name, text] : configured())
                if (name != "tarn_net" && name != "udsplash" && name != "udshape") {
                    EXPECT_EQ(text.size(), after.at(name).size()) << name << when;
                }
        }
    }
};

} // namespace

TEST_P(Crash, KilledAtEveryCall)
{
    fault_at_every_call(false);
}

TEST_P(Crash, DiskFullFromACallOn)
{
    fault_at_every_call(true);
}

INSTANTIATE_TEST_SUITE_P(Of, Crash,
                         testing::Values(crash_case{"a push that is applied at once", "",
                                                    "'" EXAMPLES_DIR "/home.json'"},
                                         crash_case{"a delayed push and its application",
                                                    "--apply ", "'" EXAMPLES_DIR "/office.json'"}));
