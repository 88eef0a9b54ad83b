// What happens to the files: locks between processes, full disks, links, other people's changes.
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "context.h"
#include "support/eventually.h"

namespace {

pid_t start(const std::function<int()> &action)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(action());
    return child;
}

int finish(pid_t child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// True when the process waits for a file lock.
bool waits_for_lock(pid_t process)
{
    std::ifstream locks("/proc/locks");
    const std::string id = " " + std::to_string(process) + " ";
    for (std::string line; std::getline(locks, line);)
        if (line.find("-> FLOCK") != std::string::npos && line.find(id) != std::string::npos)
            return true;
    return false;
}

/// A lock held by this process until the end of the scope.
class held_lock {
public:
    held_lock(const std::string &path, int kind) : fd_(open(path.c_str(), O_RDWR | O_CLOEXEC))
    {
        EXPECT_EQ(0, flock(fd_, kind));
    }
    ~held_lock()
    {
        flock(fd_, LOCK_UN); // children have the descriptor too: closing it would not do
        close(fd_);
    }
    held_lock(const held_lock &) = delete;
    held_lock &operator=(const held_lock &) = delete;

private:
    int fd_;
};

class Files : public testing::Test {
protected:
    void SetUp() override
    {
        write_file(dirs.conf("net"), "config iface 'lan'\n\toption ip '1'\n");
        write_file(dirs.save("net"), "net.lan.saved='1'\n");
    }

    int load() const
    {
        const context_handle ctx = open_context(dirs);
        return uci_load(ctx.get(), "net", nullptr);
    }

    int save(const std::string &tuple) const
    {
        const context_handle ctx = open_context(dirs);
        uci_package *p = nullptr;
        const int err = change(ctx.get(), uci_set, tuple, &p);
        return err ? err : uci_save(ctx.get(), p);
    }

    int commit() const
    {
        const context_handle ctx = open_context(dirs);
        uci_package *p = nullptr;
        const int err = uci_load(ctx.get(), "net", &p);
        return err ? err : uci_commit(ctx.get(), &p, false);
    }

    uci_directories dirs;
};

} // namespace

TEST_F(Files, LocksMakeEveryoneWaitWhoMust)
{
    const struct {
        const char *what;
        std::string file;
        int kind;
        std::function<int()> action;
    } cases[] = {
        {"load, config being committed", dirs.conf("net"), LOCK_EX, [this] { return load(); }},
        {"load, delta being written", dirs.save("net"), LOCK_EX, [this] { return load(); }},
        {"save, delta being read", dirs.save("net"), LOCK_SH,
         [this] { return save("net.lan.x=1"); }},
        {"commit, config being read", dirs.conf("net"), LOCK_SH, [this] { return commit(); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        pid_t child;
        {
            const held_lock lock(c.file, c.kind);
            child = start(c.action);
            EXPECT_TRUE(eventually([child] { return waits_for_lock(child); }));
        }
        EXPECT_EQ(0, finish(child));
    }
    const held_lock config(dirs.conf("net"), LOCK_SH), delta(dirs.save("net"), LOCK_SH);
    EXPECT_EQ(0, finish(start([this] { return load(); }))) << "readers do not wait for readers";
}

TEST_F(Files, CommitTakesChangesOthersSavedMeanwhile)
{
    const context_handle ctx = open_context(dirs);
    uci_package *p = nullptr;
    ASSERT_EQ(0, change(ctx.get(), uci_set, "net.lan.mine=1", &p));
    ASSERT_EQ(0, finish(start([this] { return save("net.lan.theirs=1"); })));
    uci_package *const before = p;
    ASSERT_EQ(0, uci_commit(ctx.get(), &p, false));
    EXPECT_EQ("\nconfig iface 'lan'\n\toption ip '1'\n\toption saved '1'\n\toption theirs '1'\n"
              "\toption mine '1'\n\n",
              content(dirs.conf("net")));
    EXPECT_EQ("", content(dirs.save("net")));
    EXPECT_NE(before, p) << "the package is made anew";
    EXPECT_EQ(p, uci_lookup_package(ctx.get(), "net"));
    EXPECT_TRUE(uci_lookup_option(ctx.get(), uci_lookup_section(ctx.get(), p, "lan"), "theirs"));
}

TEST_F(Files, FullDiskLeavesWhatWasThere)
{
    constexpr size_t LIMIT = 4096;
    const std::string big(2 * LIMIT, 'x');
    const auto on_full_disk = [](const std::function<int()> &action) {
        return finish(start([&action] {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{LIMIT, LIMIT};
            return setrlimit(RLIMIT_FSIZE, &limit) == 0 ? action() : -1;
        }));
    };

    // Half a delta line would be read as another change.
    EXPECT_EQ(UCI_ERR_IO, on_full_disk([&] { return save("net.lan.big=" + big); }));
    EXPECT_EQ("net.lan.saved='1'\n", content(dirs.save("net")));

    const std::string config = "config iface 'lan'\n\toption big '" + big + "'\n";
    write_file(dirs.conf("net"), config);
    EXPECT_EQ(UCI_ERR_IO, on_full_disk([&] { return commit(); }));
    EXPECT_EQ(config, content(dirs.conf("net")));
    EXPECT_EQ("net.lan.saved='1'\n", content(dirs.save("net")));
    const std::filesystem::directory_iterator files(dirs.conf());
    EXPECT_EQ(1, std::distance(begin(files), end(files))) << "no temporary file stays";

    EXPECT_EQ(0, commit());
    EXPECT_EQ("\nconfig iface 'lan'\n\toption big '" + big + "'\n\toption saved '1'\n\n",
              content(dirs.conf("net")));
}

TEST_F(Files, OverrideDirectoryReplacesTheConfigFile)
{
    const std::string other = dirs.root() + "/other";
    std::filesystem::create_directory(other);
    write_file(other + "/net", "config iface 'lan'\n\toption ip 'override'\n");
    context_handle ctx = open_context(dirs);
    uci_set_conf2dir(ctx.get(), other.c_str());
    uci_package *p = nullptr;
    ASSERT_EQ(0, uci_load(ctx.get(), "net", &p));
    EXPECT_TRUE(p->uses_conf2);
    ASSERT_EQ(0, uci_commit(ctx.get(), &p, false));
    EXPECT_EQ("\nconfig iface 'lan'\n\toption ip 'override'\n\toption saved '1'\n\n",
              content(other + "/net"));
}
