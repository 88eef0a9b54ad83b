// Small files: what readers accept, what writers refuse.
#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "platform/zu/file.h"
#include "support/temporary_directory.h"

namespace {

struct File : testing::Test {
    temporary_directory directory;
    std::string path = directory / "value";
};

TEST_F(File, AnIntegerIsTheWholeContent)
{
    const struct {
        std::string content;
        int result, value;
    } cases[] = {
        {"1\n", 0, 1},
        {" -12 \n\n", 0, -12},
        {"2147483647", 0, 2147483647},
        {"-2147483648\n", 0, -2147483647 - 1},
        {"2147483648\n", -1, 0},
        {"", -1, 0},
        {"\n", -1, 0},
        {"1 2", -1, 0},
        {"0x10", -1, 0},
        {"1.5", -1, 0},
        {"- 1", -1, 0},
        {std::string(64, ' ') + "1", -1, 0},
        {"1" + std::string(70, '0'), -1, 0},
    };
    for (const auto &c : cases) {
        write_file(path, c.content);
        int value = 77;
        EXPECT_EQ(file_read_int(path.c_str(), &value), c.result) << c.content;
        EXPECT_EQ(value, c.result == 0 ? c.value : 77) << c.content;
    }
    int value = 77;
    EXPECT_EQ(file_read_int((directory / "none").c_str(), &value), -1);
    EXPECT_EQ(file_read_int(directory.path.c_str(), &value), -1);
    EXPECT_EQ(value, 77);
}

TEST_F(File, ATextIsTheFirstLineUpToTheCap)
{
    std::string text = "untouched";
    EXPECT_EQ(file_read_string((directory / "none").c_str(), text, 10), -1);
    EXPECT_EQ(text, "untouched");
    const struct {
        std::string content, text;
    } cases[] = {{"one\ntwo\n", "one"},
                 {"", ""},
                 {"\nsecond", ""},
                 {"0123456789abc", "0123456789"},
                 {std::string("a\0b", 3), "a"}};
    for (const auto &c : cases) {
        write_file(path, c.content);
        EXPECT_EQ(file_read_string(path.c_str(), text, 10), 0);
        EXPECT_EQ(text, c.text);
    }
}

TEST_F(File, AFifoInAFilesPlaceDoesNotHangAnybody)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    char byte;
    EXPECT_EQ(file_read_bin(path.c_str(), &byte, 1), 0);
    EXPECT_EQ(_file_write_string(path.c_str(), "x", false), -1);
}

TEST_F(File, WritingReplacesOrContinuesButNeverThroughALink)
{
    EXPECT_EQ(_file_write_string(path.c_str(), "a long beginning", false), 0);
    EXPECT_EQ(_file_write_string_fmt(path.c_str(), false, "%s=%d", "x", 7), 0);
    EXPECT_EQ(_file_write_string_fmt(path.c_str(), true, "%c", '\n'), 0);
    EXPECT_EQ(read_file(path), "x=7\n");

    ASSERT_EQ(symlink(path.c_str(), (directory / "link").c_str()), 0);
    EXPECT_EQ(_file_write_string((directory / "link").c_str(), "evil", false), -1);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(_file_write_string((directory / "none/x").c_str(), "", false), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(read_file(path), "x=7\n");
    if (access("/dev/full", W_OK) == 0) {
        EXPECT_EQ(_file_write_string("/dev/full", "x", false), -1);
        EXPECT_EQ(errno, ENOSPC);
    }
}

TEST(Process, IsAliveUntilItIsReaped)
{
    EXPECT_TRUE(process_is_alive(getpid()));
    EXPECT_TRUE(process_is_alive(1));  // there, even where it may not be signalled
    EXPECT_FALSE(process_is_alive(0)); // would mean the whole group
    EXPECT_FALSE(process_is_alive(-1));
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(process_is_alive(child));
}

} // namespace
