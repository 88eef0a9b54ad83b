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
        EXPECT_EQ(flock(fd_, kind), 0);
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
        EXPECT_EQ(finish(child), 0);
    }
    const held_lock config(dirs.conf("net"), LOCK_SH), delta(dirs.save("net"), LOCK_SH);
    EXPECT_EQ(finish(start([this] { return load(); })), 0) << "readers do not wait for readers";
}

TEST_F(Files, CommitTakesChangesOthersSavedMeanwhile)
{
    const context_handle ctx = open_context(dirs);
    uci_package *p = nullptr;
    ASSERT_EQ(change(ctx.get(), uci_set, "net.lan.mine=1", &p), 0);
    ASSERT_EQ(finish(start([this] { return save("net.lan.theirs=1"); })), 0);
    uci_package *const before = p;
    ASSERT_EQ(uci_commit(ctx.get(), &p, false), 0);
    EXPECT_EQ(content(dirs.conf("net")),
              "\nconfig iface 'lan'\n\toption ip '1'\n\toption saved '1'\n\toption theirs '1'\n"
              "\toption mine '1'\n\n");
    EXPECT_EQ(content(dirs.save("net")), "");
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
    EXPECT_EQ(on_full_disk([&] { return save("net.lan.big=" + big); }), UCI_ERR_IO);
    EXPECT_EQ(content(dirs.save("net")), "net.lan.saved='1'\n");

    const std::string config = "config iface 'lan'\n\toption big '" + big + "'\n";
    write_file(dirs.conf("net"), config);
    EXPECT_EQ(on_full_disk([&] { return commit(); }), UCI_ERR_IO);
    EXPECT_EQ(content(dirs.conf("net")), config);
    EXPECT_EQ(content(dirs.save("net")), "net.lan.saved='1'\n");
    const std::filesystem::directory_iterator files(dirs.conf());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << "no temporary file stays";

    EXPECT_EQ(commit(), 0);
    EXPECT_EQ(content(dirs.conf("net")),
              "\nconfig iface 'lan'\n\toption big '" + big + "'\n\toption saved '1'\n\n");
}

TEST_F(Files, OverrideDirectoryReplacesTheConfigFile)
{
    const std::string other = dirs.root() + "/other";
    std::filesystem::create_directory(other);
    write_file(other + "/net", "config iface 'lan'\n\toption ip 'override'\n");
    context_handle ctx = open_context(dirs);
    uci_set_conf2dir(ctx.get(), other.c_str());
    uci_package *p = nullptr;
    ASSERT_EQ(uci_load(ctx.get(), "net", &p), 0);
    EXPECT_TRUE(p->uses_conf2);
    ASSERT_EQ(uci_commit(ctx.get(), &p, false), 0);
    EXPECT_EQ(content(other + "/net"),
              "\nconfig iface 'lan'\n\toption ip 'override'\n\toption saved '1'\n\n");
}
