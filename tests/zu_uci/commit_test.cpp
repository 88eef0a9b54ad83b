// Commits, and changes saved without one: what other processes changed is kept, no full disk ever
// costs what was there, and nobody's lock holds us up.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/syscall.h>

extern "C" {
#include <libubox/uloop.h>
}

#include "platform/zu/uci/uci_internal.h"
#include "uci_fixture.h"

namespace {

using Commit = uci_fixture;

/// What a commit has left beside the packages in the configuration directory.
int left_behind()
{
    DIR *dir = opendir("/etc/config");
    int count = 0;
    while (const dirent *entry = readdir(dir))
        count += entry->d_name[0] == '.' && isalpha(entry->d_name[1]);
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

const char *unmovable; // no new file gets this name
int rival_locks;       // that another process got while libuci was about to take its own
bool rival_watches;
long slept_ms;

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

extern "C" int nanosleep(const timespec *time, timespec *rest)
{
    slept_ms += time->tv_nsec / 1000000;
    return static_cast<int>(syscall(SYS_nanosleep, time, rest));
}

extern "C" int rename(const char *from, const char *to) noexcept
{
    if (unmovable && !strcmp(to, unmovable) && strstr(from, ".new")) {
        errno = ENOSPC;
        return -1;
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
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
        slept_ms = 0;
        EXPECT_EQ(-1, ng_uci_commit("zt"));
        EXPECT_FALSE(ng_uci_is_free("zt"));
        EXPECT_LE(slept_ms, NG_UCI_LOCK_WAIT_MS) << path;
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
    EXPECT_GT(rival_locks, 0) << "libuci alone lets others in";
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

TEST_F(Commit, OfSeveralPackagesIsWholeOrNone)
{
    constexpr const char *PACKAGES[] = {"zt", "missing", "zu", "zv"};
    const struct {
        const char *what, *before, *after, *locked, *unmovable;
    } faults[] = {
        {"locked", ":", ":", "/etc/config/zu", nullptr},
        {"broken", "mv /etc/config/zv /tmp/; echo \"config 'x\" >/etc/config/zv",
         "mv /tmp/zv /etc/config/", nullptr, nullptr},
        {"mounted", "mount --bind /etc/config/zu /etc/config/zu", "umount /etc/config/zu", nullptr,
         nullptr},
        {"no room for the second's name", ":", ":", nullptr, "/etc/config/zu"},
        {"no room for the last's name", ":", ":", nullptr, "/etc/config/zv"},
    };
    for (const auto &fault : faults) {
        SCOPED_TRACE(fault.what);
        reset();
        shell("chmod 640 /etc/config/zt; for i in u v; do cp -p /etc/config/zt /etc/config/z$i; "
              "done");
        for (const char *name : {"zt.a.one", "missing.a.one", "zu.a.one", "zv.a.one"})
            EXPECT_EQ(0, act(uci_set_string, "2", name));
        shell(fault.before);
        zu_descriptor rival(fault.locked ? open(fault.locked, O_RDONLY | O_CLOEXEC) : -1);
        EXPECT_TRUE(!fault.locked || flock(rival, LOCK_EX) == 0);
        unmovable = fault.unmovable;
        bool changed = true;
        EXPECT_EQ(-1, ng_uci_commit_all(PACKAGES, &changed));
        EXPECT_FALSE(changed);
        unmovable = nullptr;
        rival = zu_descriptor(-1);
        shell(fault.after);
        for (const char *path : {CONFIG, "/etc/config/zu", "/etc/config/zv"})
            EXPECT_EQ(BASE, read_file(path)) << path;
        EXPECT_EQ(0, left_behind());

        EXPECT_EQ(0, ng_uci_commit_all(PACKAGES, &changed)) << "the changes are still there";
        EXPECT_TRUE(changed);
        EXPECT_EQ("2\n2\n2\n", shell("for i in t u v; do uci get z$i.a.one; done"));
        EXPECT_EQ("640\n640\n640\n", shell("stat -c %a /etc/config/z[tuv]"));
        EXPECT_EQ(0, left_behind());
    }
    EXPECT_EQ(1, logged("NOTICE: There is no package missing")) << "which is no fault";
    shell("rm /etc/config/z[uv]");
}

TEST_F(Commit, GoesWhereThePackageWasReadFrom)
{
    shell("mkdir -p /var/run/uci; cp /etc/config/zt /var/run/uci/zt; "
          "mv /etc/config/zt /etc/config/behind; ln -s behind /etc/config/zt");
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    ASSERT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ("2\n", shell("uci get zt.a.one"));
    const zu_descriptor rival(open("/var/run/uci/zt", O_RDWR | O_CLOEXEC));
    ASSERT_EQ(0, flock(rival, LOCK_EX));
    EXPECT_FALSE(ng_uci_is_free("zt"));
    EXPECT_EQ(BASE, config()) << "the override is what was changed";
    shell("rm /var/run/uci/zt");
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(0, act(uci_set_string, "3", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ("3\nbehind\n", shell("uci get zt.a.one; readlink /etc/config/zt"));
    shell("rm /etc/config/zt /etc/config/behind");
}

TEST_F(Commit, RemovesWhatAPowerCutLeft)
{
    write_file("/etc/config/.zt.new", "old");
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ(0, left_behind());
    EXPECT_EQ("2\n", shell("uci get zt.a.one"));
    // Half of a commit, with an old file that cannot be put back yet.
    write_file("/etc/config/.zt.undo", BASE);
    ASSERT_EQ(0, symlink("/etc/config/zt\n", "/etc/config/.commit"));
    shell("rm /etc/config/zt; mkdir /etc/config/zt; rm -f /var/log/journal");
    EXPECT_FALSE(ng_uci_recover());
    EXPECT_EQ(NG_UCI_UNREADABLE, ng_uci_check_readable("tarn_net"));
    shell("rmdir /etc/config/zt");
    EXPECT_EQ(NG_UCI_READABLE, ng_uci_check_readable("tarn_net"));
    EXPECT_EQ(BASE, config());
    EXPECT_EQ(0, left_behind());
    uloop_timeout end{};
    end.cb = [](uloop_timeout *) { uloop_end(); };
    uloop_init();
    uloop_timeout_set(&end, 1100); // after ours
    uloop_run();
    uloop_done();
    EXPECT_NE(std::string::npos, shell("cat /var/log/journal").find("reload_config"));
}
