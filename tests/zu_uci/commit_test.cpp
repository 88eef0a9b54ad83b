// Commits, and changes saved without one: what other processes changed is kept, no full disk ever
// costs what was there, and nobody's lock holds us up.
#include "uci_fixture.h"

#include "platform/zu/ng_uci_internal.h"

#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/syscall.h>

namespace {

using Commit = uci_fixture;

/// Names beginning with ".zt" that a commit has left in the configuration directory.
int left_behind()
{
    DIR *dir = opendir("/etc/config");
    int count = 0;
    while (const dirent *entry = readdir(dir))
        count += !strncmp(entry->d_name, ".zt", 3);
    closedir(dir);
    return count;
}

/// A directory on a disk of its own, filled to the last byte after `prepare`.
class small_disk {
public:
    small_disk(const char *directory, const char *options, void (*prepare)())
        : directory_(directory), filler_(std::string(directory) + "/filler")
    {
        EXPECT_EQ(0, mount("tmpfs", directory, "tmpfs", 0, options));
        prepare();
        FILE *file = fopen(filler_.c_str(), "w");
        if (!file)
            return; // not even a name left
        setvbuf(file, nullptr, _IONBF, 0);
        while (fputc('x', file) != EOF) {
        }
        fclose(file);
    }
    ~small_disk() { EXPECT_EQ(0, umount(directory_)); }
    small_disk(const small_disk &) = delete;
    small_disk &operator=(const small_disk &) = delete;

    void make_room() const { unlink(filler_.c_str()); }

private:
    const char *directory_;
    std::string filler_;
};

int rival_locks; // that another process got while libuci was about to take its own
bool rival_watches;

} // namespace

/// Whoever waits for a lock gives a rival the chance to be first.
extern "C" int flock(int fd, int operation) noexcept
{
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    const int rival = rival_watches && (operation & LOCK_NB) == 0 ? open(path, O_RDONLY) : -1;
    if (rival >= 0 && syscall(SYS_flock, rival, LOCK_EX | LOCK_NB) == 0)
        rival_locks++;
    close(rival);
    return static_cast<int>(syscall(SYS_flock, fd, operation));
}

TEST_F(Commit, TakesInWhatOthersSaved)
{
    EXPECT_EQ(0, act(uci_set_string, "mine", "zt.b.two"));
    shell("uci set zt.b.one=theirs");
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ("theirs\nmine\n", shell("uci get zt.b.one; uci get zt.b.two"));
    EXPECT_EQ("", delta());
    EXPECT_EQ(0, left_behind());
    std::string text;
    EXPECT_EQ(0, ng_uci_get_string(text, "zt.b.one"));
    EXPECT_EQ("theirs", text);
    EXPECT_EQ(0, ng_uci_commit("zt")) << "nothing to commit is no failure";
    EXPECT_EQ(-1, ng_uci_commit("missing"));
}

TEST_F(Commit, OnFullDiskLeavesTheOldFile)
{
    const small_disk disk("/etc/config", "size=16k", [] { write_file(CONFIG, BASE); });
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(0, act(uci_set_string, std::string(8000, 'x').c_str(), "zt.a.one"));
    EXPECT_EQ(-1, ng_uci_commit("zt"));
    EXPECT_EQ(BASE, config());
    EXPECT_EQ(0, left_behind());
    EXPECT_EQ(1, logged("ERROR"));

    disk.make_room();
    EXPECT_EQ(0, ng_uci_commit("zt")) << "the changes are still there when there is room again";
    EXPECT_NE(std::string::npos, config().find(std::string(8000, 'x')));
    (void)ng_uci_renew_change_context();
}

TEST_F(Commit, WithoutADirectoryEntryToSpareIsRefused)
{
    const small_disk disk("/etc/config", "nr_inodes=3", [] {
        write_file(CONFIG, BASE);
        write_file("/etc/config/other", "");
    });
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    EXPECT_EQ(-1, ng_uci_commit("zt"));
    EXPECT_EQ(BASE, config());
    EXPECT_EQ(0, left_behind());
    (void)ng_uci_renew_change_context();
}

TEST_F(Commit, NeedsNoRoomForTheDeltaFile)
{
    (void)ng_uci_renew_change_context();
    ASSERT_EQ(0, mount("tmpfs", "/tmp/.uci", "tmpfs", 0, "nr_inodes=1"));
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.b.one"));
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ(0, umount("/tmp/.uci"));
    EXPECT_EQ("2\n2\n", shell("uci get zt.a.one; uci get zt.b.one"));
}

TEST_F(Commit, DoesNotWaitForAnotherProcessesLock)
{
    for (const char *path : {CONFIG, DELTA}) {
        reset();
        write_file(DELTA, "");
        EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
        const int fd = open(path, O_RDWR);
        ASSERT_EQ(0, flock(fd, LOCK_EX));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(-1, ng_uci_commit("zt"));
        EXPECT_FALSE(ng_uci_is_free("zt"));
        const auto waited = std::chrono::steady_clock::now() - start;
        EXPECT_LT(waited, std::chrono::milliseconds(NG_UCI_LOCK_WAIT_MS + 40)) << path;
        EXPECT_EQ(BASE, config());
        close(fd);
        EXPECT_EQ(0, ng_uci_commit("zt")) << "the changes are still there when the lock is gone";
        EXPECT_EQ("2\n", shell("uci get zt.a.one"));
    }
}

TEST_F(Commit, NobodyGetsALockBetweenOursAndLibucis)
{
    write_file(DELTA, "zt.b.two='2'\n");
    rival_watches = true;
    EXPECT_TRUE(ng_uci_exists("zt.b.two"));
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_flush());
    EXPECT_EQ(0, act(uci_set_string, "3", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ(0, act(uci_set_string, "4", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_revert("zt"));
    EXPECT_EQ(0, rival_locks);
    uci_context *unprotected = uci_alloc_context();
    EXPECT_EQ(UCI_OK, uci_load(unprotected, "zt", nullptr));
    EXPECT_EQ(2, rival_locks) << "of both files: libuci alone lets others in";
    uci_free_context(unprotected);
    rival_watches = false;
}

TEST_F(Commit, SavingOnFullDiskTearsNothingAndLosesNothing)
{
    const small_disk disk("/tmp/.uci", "size=8k", [] { write_file(DELTA, "zt.b.two='2'\n"); });
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(0, act(uci_set_string, std::string(8000, 'x').c_str(), "zt.a.one"));
    EXPECT_EQ(-1, ng_uci_flush());
    EXPECT_EQ("zt.b.two='2'\n", delta());
    EXPECT_EQ(1, logged("Failed to save changes of zt: No space left on device"));
    EXPECT_EQ(-1, ng_uci_flush()) << "the changes are still there";

    disk.make_room();
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    write_file(DELTA, "zt.b.two='2'\nzt.b.tor"); // another process was cut short
    EXPECT_EQ(0, ng_uci_flush());
    EXPECT_EQ("2\n2\n", shell("uci get zt.a.one; uci get zt.b.two"));
    (void)ng_uci_renew_change_context();
}

TEST_F(Commit, RemovesWhatAPowerCutLeft)
{
    write_file("/etc/config/.zt.new", "old");
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ(0, left_behind());
    EXPECT_EQ("2\n", shell("uci get zt.a.one"));
}
