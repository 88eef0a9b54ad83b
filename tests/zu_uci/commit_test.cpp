// Commits: what other processes changed is kept, and no full disk ever costs the old file.
#include "uci_fixture.h"

#include "platform/zu/ng_uci_internal.h"

#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>

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

/// /etc/config on a disk of `size` bytes, filled to the last one after `prepare`.
class small_disk {
public:
    explicit small_disk(const char *options, void (*prepare)())
    {
        EXPECT_EQ(0, mount("tmpfs", "/etc/config", "tmpfs", 0, options));
        prepare();
        FILE *file = fopen("/etc/config/filler", "w");
        if (!file)
            return; // not even a name left
        setvbuf(file, nullptr, _IONBF, 0);
        while (fputc('x', file) != EOF) {
        }
        fclose(file);
    }
    ~small_disk() { EXPECT_EQ(0, umount("/etc/config")); }
    small_disk(const small_disk &) = delete;
    small_disk &operator=(const small_disk &) = delete;
};

} // namespace

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
    const small_disk disk("size=16k", [] { write_file(CONFIG, BASE); });
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(0, act(uci_set_string, std::string(8000, 'x').c_str(), "zt.a.one"));
    EXPECT_EQ(-1, ng_uci_commit("zt"));
    EXPECT_EQ(BASE, config());
    EXPECT_EQ(0, left_behind());
    EXPECT_EQ(1, logged("ERROR"));

    unlink("/etc/config/filler");
    EXPECT_EQ(0, ng_uci_commit("zt")) << "the changes are still there when there is room again";
    EXPECT_NE(std::string::npos, config().find(std::string(8000, 'x')));
    (void)ng_uci_renew_change_context();
}

TEST_F(Commit, WithoutADirectoryEntryToSpareIsRefused)
{
    const small_disk disk("nr_inodes=3", [] {
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

TEST_F(Commit, RemovesWhatAPowerCutLeft)
{
    write_file("/etc/config/.zt.new", "old");
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ(0, left_behind());
    EXPECT_EQ("2\n", shell("uci get zt.a.one"));
}
