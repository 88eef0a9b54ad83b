// LED flags: content, writing on change only, planted links. Runs in the sandbox: the path is
// fixed.
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/zu/led.h"
#include "platform/zu/log.h"
#include "support/temporary_directory.h"

namespace fs = std::filesystem;

namespace {

const std::string FLAGS = "/tmp/led_flags/";

struct Led : testing::Test {
    void SetUp() override { fs::remove_all("/tmp/led_flags"); }
    void TearDown() override { fs::remove_all("/tmp/led_flags"); }
};

TEST_F(Led, AFlagIsAFileOfOneDigitWrittenWhenItChanges)
{
    update_led_flag("config", true);
    EXPECT_EQ(read_file(FLAGS + "config"), "1");
    EXPECT_EQ(fs::status("/tmp/led_flags").permissions(), fs::perms(0755));
    const auto changed = [](bool on) {
        const timespec long_ago[2] = {{1000, 0}, {1000, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, (FLAGS + "config").c_str(), long_ago, 0), 0);
        update_led_flag("config", on);
        struct stat info;
        EXPECT_EQ(stat((FLAGS + "config").c_str(), &info), 0);
        return info.st_mtime > 1000;
    };
    EXPECT_FALSE(changed(true));
    EXPECT_TRUE(changed(false));
    update_led_flag("mesh", true);
    EXPECT_EQ(read_file(FLAGS + "config"), "0");
    EXPECT_EQ(read_file(FLAGS + "mesh"), "1");
}

TEST_F(Led, WhatOthersDidToAFlagIsPutRight)
{
    update_led_flag("config", true);
    for (const char *content : {"", "0", "1\n", "longer than one"}) {
        write_file(FLAGS + "config", content);
        update_led_flag("config", true);
        EXPECT_EQ(read_file(FLAGS + "config"), "1");
    }
    fs::remove_all("/tmp/led_flags");
    update_led_flag("config", true);
    EXPECT_EQ(read_file(FLAGS + "config"), "1");
}

TEST_F(Led, PlantedLinksAndNamesLeadNowhere)
{
    const temporary_directory elsewhere;
    write_file(elsewhere / "victim", "precious");

    update_led_flag("other", true);
    fs::create_symlink(elsewhere / "victim", FLAGS + "config");
    update_led_flag("config", true);
    EXPECT_EQ(read_file(elsewhere / "victim"), "precious");

    fs::remove_all("/tmp/led_flags");
    fs::create_directory_symlink(elsewhere.path, "/tmp/led_flags");
    update_led_flag("victim", true);
    update_led_flag("config", true);
    EXPECT_EQ(read_file(elsewhere / "victim"), "precious");
    EXPECT_FALSE(fs::exists(elsewhere / "config"));
    fs::remove("/tmp/led_flags");

    for (const char *name : {"../escaped", "", ".", ".."})
        update_led_flag(name, true);
    EXPECT_FALSE(fs::exists("/tmp/escaped"));
}

} // namespace
