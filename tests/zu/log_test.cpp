// The log's line format, levels, file rules and rotation.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <vector>

#include "platform/zu/log.h"
#include "platform/zu/system_log.h"
#include "support/temporary_directory.h"

// Stands in for the C library's, to let it fail.
static bool gCtime_fails;
extern "C" char *ctime_r(const time_t *when, char *buffer) noexcept
{
    tm broken_down;
    if (gCtime_fails || !localtime_r(when, &broken_down))
        return nullptr;
    return asctime_r(&broken_down, buffer);
}

namespace {

struct Log : testing::Test {
    temporary_directory directory;
    std::string path = directory / "debug.log";

    void SetUp() override
    {
        gDebug_log_level = ZU_LOG_NOTICE;
        debug_init(path.c_str());
    }
    void TearDown() override
    {
        zu_log_set_error_listener(nullptr, nullptr);
        close_log();
        gCtime_fails = false;
    }
    static void close_log()
    {
        if (gDebug_file)
            fclose(gDebug_file);
        gDebug_file = nullptr;
    }

    std::vector<std::string> lines() const
    {
        std::ifstream file(path);
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line);)
            all.push_back(line);
        return all;
    }
    std::string last_message() const
    {
        const auto all = lines();
        return all.empty() ? "(no line)" : all.back().substr(all.back().find("ERROR: ") + 7);
    }
};

void log_every_level()
{
    log_error("at %d", 1);
    log_warning("at %d", 2);
    log_notice("at %d", 3);
    log_info("at %d", 4);
    log_debug("at %d", 5);
}

TEST_F(Log, ALineNamesTimeProcessFunctionLineAndLevel)
{
    log_error("could not %s", "open");
    const int line = __LINE__ - 1;
    const std::regex format(
        R"(([A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d \d{4}) \[(\d+)\] )"
        R"(TestBody:(\d+): ERROR: could not open)");
    ASSERT_EQ(lines().size(), 1u);
    const std::string written = lines()[0];
    std::smatch match;
    ASSERT_TRUE(std::regex_match(written, match, format)) << written;
    EXPECT_EQ(match[2], std::to_string(getpid()));
    EXPECT_EQ(match[3], std::to_string(line));

    // A failed time stamp leaves the field empty.
    gCtime_fails = true;
    log_error("x");
    EXPECT_TRUE(lines().back().starts_with(" [")) << lines().back();
    char stamp[LOG_TIMESTAMP_SIZE];
    memset(stamp, 'x', sizeof stamp);
    zu_log_timestamp(stamp);
    EXPECT_EQ(std::string(stamp, sizeof stamp), std::string(sizeof stamp, '\0'));
}

TEST_F(Log, TheThresholdDecidesWhatIsWritten)
{
    const std::vector<std::string> words = {"ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};
    for (int level = 0; level <= 5; level++) {
        debug_init((path + std::to_string(level)).c_str());
        debug_set_level(level);
        log_every_level();
        const std::string text = read_file(path + std::to_string(level));
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), level);
        for (int n = 1; n <= level; n++)
            EXPECT_NE(text.find(words[n - 1] + ": at " + std::to_string(n) + "\n"),
                      std::string::npos);
    }
    // What is dropped is not formatted.
    int evaluated = 0;
    close_log();
    log_debug("%d", ++evaluated);
    debug_init(path.c_str());
    debug_set_level(4);
    log_debug("%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
}

TEST_F(Log, OneEventStaysOnOneLine)
{
    const struct {
        const char *message, *written;
    } cases[] = {
        {"a\nSat Nov 21 [1] main:1: ERROR: forged", "a\\x0aSat Nov 21 [1] main:1: ERROR: forged"},
        {"\x1b[31m\x7f\x01\r\t", "\\x1b[31m\\x7f\\x01\\x0d\\x09"},
        {"caf\xc3\xa9 \xff 100% \\x41", "caf\xc3\xa9 \xff 100% \\x41"},
        {"", ""},
    };
    for (const auto &c : cases) {
        log_error("%s", c.message);
        EXPECT_EQ(last_message(), c.written);
    }
    EXPECT_EQ(std::size(cases), lines().size());
}

TEST_F(Log, AMessageTooLongIsCutAndSaysSo)
{
    const std::string fits(LOG_MESSAGE_MAX, 'a');
    log_error("%s", fits.c_str());
    EXPECT_EQ(last_message(), fits);
    for (const std::string &longer : {fits + "b", std::string(LOG_MESSAGE_MAX, '\n')}) {
        log_error("%s", longer.c_str());
        const std::string written = last_message();
        EXPECT_LE(written.size(), static_cast<std::size_t>(LOG_MESSAGE_MAX));
        EXPECT_GE(written.size(), static_cast<std::size_t>(LOG_MESSAGE_MAX) - 16);
        EXPECT_EQ(written.substr(written.size() - 3), "...");
    }
}

TEST_F(Log, TheFileIsAppendedToAndNotInherited)
{
    EXPECT_TRUE(fcntl(fileno(gDebug_file), F_GETFD) & FD_CLOEXEC);
    log_error("first");
    debug_init(path.c_str());
    log_error("second");
    EXPECT_EQ(lines().size(), 2u);
}

TEST_F(Log, OnlyAPlainFileOfOurOwnBecomesTheLog)
{
    const std::string victim = directory / "victim";
    const auto plant_file = [&](mode_t mode) {
        write_file(path, "planted");
        return chmod(path.c_str(), mode);
    };
    const struct {
        const char *what;
        std::function<int()> plant;
        bool replaced;
    } cases[] = {
        {"symbolic link", [&] { return symlink(victim.c_str(), path.c_str()); }, true},
        {"hard link", [&] { return link(victim.c_str(), path.c_str()); }, true},
        {"fifo", [&] { return mkfifo(path.c_str(), 0600); }, true},
        {"others may write", [&] { return plant_file(0666); }, true},
        {"another user's", [&] { return plant_file(0640) || chown(path.c_str(), 1, 1); }, true},
        {"our own", [&] { return plant_file(0640); }, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove(path);
        write_file(victim, "precious");
        chmod(victim.c_str(), 0640);
        if (c.plant() != 0) {
            EXPECT_TRUE(errno == EPERM || errno == EINVAL)
                << "only root has other users to give to";
            continue;
        }
        debug_init(path.c_str());
        log_error("written");
        EXPECT_EQ(last_message(), "written");
        EXPECT_EQ(read_file(path).find("planted") == std::string::npos, c.replaced);
        EXPECT_EQ(read_file(victim), "precious");
        struct stat info;
        EXPECT_EQ(lstat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode, S_IFREG | 0640u);
        EXPECT_EQ(info.st_uid, geteuid());
    }
    for (const std::string &refused : {directory.path, directory / "none/x"}) {
        debug_init(refused.c_str());
        EXPECT_EQ(gDebug_file, nullptr) << refused;
        log_error("nothing happens");
    }
}

TEST_F(Log, TheLogAndItsPredecessorStaySmall)
{
    const std::string text(1000, 'x');
    for (int i = 0; i < 1300; i++)
        log_error("%d %s", i, text.c_str());
    EXPECT_LE(std::filesystem::file_size(path), static_cast<std::size_t>(LOG_FILE_LIMIT) + 2000);
    EXPECT_GE(std::filesystem::file_size(path + ".1"), static_cast<std::size_t>(LOG_FILE_LIMIT));
    EXPECT_FALSE(std::filesystem::exists(path + ".2"));
    EXPECT_EQ(last_message(), "1299 " + text);
    // What was there at start counts.
    debug_init(path.c_str());
    std::filesystem::resize_file(path, LOG_FILE_LIMIT);
    debug_init(path.c_str());
    log_error("one more");
    EXPECT_LE(std::filesystem::file_size(path), 2000u);
}

TEST_F(Log, RotationSurvivesWhatOthersDoToTheFiles)
{
    const std::string text(4000, 'x');
    const auto fill = [&] {
        for (long written = 0; written <= LOG_FILE_LIMIT; written += 4000)
            log_error("%s", text.c_str());
    };
    for (int times = 0; times < 2; times++) {
        std::filesystem::remove(path);
        log_error("after removal");
        EXPECT_EQ(last_message(), "after removal");
        EXPECT_EQ(lines().size(), 1u);
        std::filesystem::create_hard_link(path, directory / "kept" + std::to_string(times));
        fill();
    }
    std::filesystem::rename(path, directory / "moved");
    log_error("after a move");
    EXPECT_EQ(last_message(), "after a move");
    EXPECT_LE(std::filesystem::file_size(path), 2000u);

    // Nothing can be renamed onto a directory that is not empty: the file is emptied instead.
    std::filesystem::remove(path + ".1");
    std::filesystem::create_directories(path + ".1/sub");
    fill();
    log_error("after refusal");
    EXPECT_EQ(last_message(), "after refusal");
    EXPECT_LE(std::filesystem::file_size(path), static_cast<std::size_t>(LOG_FILE_LIMIT) / 4);
}

TEST_F(Log, AFullDiskLosesLinesButNothingElse)
{
    struct rlimit unlimited;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &unlimited), 0);
    signal(SIGXFSZ, SIG_IGN);
    log_error("before");
    const struct rlimit full = {std::filesystem::file_size(path), unlimited.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    errno = EAGAIN;
    for (int i = 0; i < 100; i++)
        log_error("lost %s", std::string(1000, 'x').c_str());
    EXPECT_EQ(errno, EAGAIN);
    setrlimit(RLIMIT_FSIZE, &unlimited);
    log_error("after");
    ASSERT_EQ(lines().size(), 2u);
    EXPECT_EQ(last_message(), "after");
}

TEST_F(Log, AnErrorListenerHearsErrorsEvenWithoutALog)
{
    std::vector<std::string> heard;
    const auto listen = [](const char *message, void *priv) {
        static_cast<std::vector<std::string> *>(priv)->push_back(message);
    };
    zu_log_set_error_listener(listen, &heard);
    log_every_level();
    debug_set_level(0);
    log_every_level();
    close_log();
    log_error("bad\nname");
    zu_log_set_error_listener(nullptr, nullptr);
    log_error("unheard");
    EXPECT_EQ(heard, (std::vector<std::string>{"at 1", "at 1", "bad\\x0aname"}));
}

/// What a log daemon at `address` would read; bound anew at each start of it.
struct log_daemon {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_un address = {AF_UNIX, ""};

    explicit log_daemon(const std::string &at)
    {
        strcpy(address.sun_path, at.c_str());
        unlink(at.c_str());
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    ~log_daemon() { close(fd); }
    /// The next message without its time, or "" where none waits.
    std::string read() const
    {
        char line[2048];
        const ssize_t length = recv(fd, line, sizeof line, 0);
        const std::string text(line, length > 0 ? static_cast<size_t>(length) : 0);
        static const std::regex TIME(R"([A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d )");
        return std::regex_replace(text, TIME, "", std::regex_constants::format_first_only);
    }
};

TEST_F(Log, TheSystemLogGetsACopyOfWhatWentWrongAndIsNeverWaitedFor)
{
    const std::string at = directory / "log_socket", tag = "tarn_net[" + std::to_string(getpid());
    system_log_open(at.c_str());
    log_error("nobody is there yet");
    {
        const log_daemon daemon(at);
        debug_set_level(ZU_LOG_DEBUG);
        log_every_level();
        log_warning("a\nforged line");
        EXPECT_EQ(daemon.read(), "<27>" + tag + "]: at 1");
        EXPECT_EQ(daemon.read(), "<28>" + tag + "]: at 2");
        EXPECT_EQ(daemon.read(), "<28>" + tag + "]: a\\x0aforged line");
        EXPECT_EQ(daemon.read(), "");
        // A line that is too long for a log daemon is cut between two characters.
        for (const char *shift : {"", "x"}) {
            std::string umlauts = shift;
            while (umlauts.size() < 2000)
                umlauts += "\xc3\xa4";
            log_error("%s", umlauts.c_str());
            const std::string line = daemon.read();
            EXPECT_LT(line.size(), 1024u - strlen("Nov 21 20:00:00 "));
            EXPECT_EQ(line.substr(line.size() - 5), "\xc3\xa4...");
        }
        for (int i = 0; i < 5000; i++) // far more than a socket holds
            log_error("%d", i);
    }
    log_error("it is gone");
    const log_daemon restarted(at);
    log_error("it is back");
    EXPECT_EQ(restarted.read(), "<27>" + tag + "]: it is back");
    EXPECT_EQ(last_message(), "it is back");
}

} // namespace
