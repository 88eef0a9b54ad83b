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
        EXPECT_EQ(mount("tmpfs", directory, "tmpfs", 0, options), 0);
        prepare();
        FILE *file = fopen(filler_.c_str(), "w");
        if (!file)
            return; // not even a name left
        setvbuf(file, nullptr, _IONBF, 0);
        while (fputc('x', file) != EOF) {
        }
        fclose(file);
    }
    ~small_disk() { EXPECT_EQ(umount(directory_), 0); }
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

TEST_F(Commit, TakesInWhatOthersChangeMeanwhile)
{
    const struct {
        const char *before, *meanwhile, *theirs;
    } cases[] = {
        {":", "uci set zt.b.one=2", "2"},
        {":", "uci set zt.b.one=2; uci commit zt", "2"},
        {"uci set zt.b.one=2", "uci revert zt", "1"},
        {":", // in place, and by length and time it is what it was
         "cp -p /etc/config/zt /tmp/zt; sed s/1/2/ /tmp/zt >/etc/config/zt; "
         "touch -r /tmp/zt /etc/config/zt",
         "2"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.meanwhile);
        reset();
        shell(c.before);
        EXPECT_EQ(act(uci_set_string, "mine", "zt.b.two"), 0);
        shell(c.meanwhile);
        EXPECT_EQ(ng_uci_commit("zt"), 0);
        EXPECT_EQ(shell("uci get zt.b.one; uci get zt.b.two"), c.theirs + std::string("\nmine\n"));
        EXPECT_EQ(delta(), "");
        EXPECT_EQ(left_behind(), 0);
        std::string text;
        EXPECT_EQ(ng_uci_get_string(text, "zt.b.one"), 0);
        EXPECT_EQ(text, c.theirs);
        EXPECT_EQ(ng_uci_commit("zt"), 0) << "nothing to commit is no failure";
    }
}

TEST_F(Commit, OnFullDiskLeavesTheOldFile)
{
    const small_disk disk("/etc/config", "size=16k", [] { write_file(CONFIG, BASE); });
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(act(uci_set_string, std::string(8000, 'x').c_str(), "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_commit("zt"), -1);
    EXPECT_EQ(config(), BASE);
    EXPECT_EQ(left_behind(), 0);
    EXPECT_EQ(logged("ERROR"), 1);

    disk.make_room();
    EXPECT_EQ(ng_uci_commit("zt"), 0) << "the changes are still there when there is room again";
    EXPECT_NE(config().find(std::string(8000, 'x')), std::string::npos);
    (void)ng_uci_renew_change_context();
}

TEST_F(Commit, WithoutADirectoryEntryToSpareIsRefused)
{
    const small_disk disk("/etc/config", "nr_inodes=3", [] {
        write_file(CONFIG, BASE);
        write_file("/etc/config/other", "");
    });
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(act(uci_set_string, "2", "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_commit("zt"), -1);
    EXPECT_EQ(config(), BASE);
    EXPECT_EQ(left_behind(), 0);
    (void)ng_uci_renew_change_context();
}

TEST_F(Commit, NeedsNoRoomForTheDeltaFile)
{
    (void)ng_uci_renew_change_context();
    ASSERT_EQ(mount("tmpfs", "/tmp/.uci", "tmpfs", 0, "nr_inodes=1"), 0);
    EXPECT_EQ(act(uci_set_string, "2", "zt.a.one"), 0);
    EXPECT_EQ(act(uci_set_string, "2", "zt.b.one"), 0);
    EXPECT_EQ(ng_uci_commit("zt"), 0);
    EXPECT_EQ(umount("/tmp/.uci"), 0);
    EXPECT_EQ(shell("uci get zt.a.one; uci get zt.b.one"), "2\n2\n");
}

TEST_F(Commit, DoesNotWaitForAnotherProcessesLock)
{
    for (const char *path : {CONFIG, DELTA}) {
        reset();
        write_file(DELTA, "");
        EXPECT_EQ(act(uci_set_string, "2", "zt.a.one"), 0);
        const int fd = open(path, O_RDWR);
        ASSERT_EQ(flock(fd, LOCK_EX), 0);
        slept_ms = 0;
        EXPECT_EQ(ng_uci_commit("zt"), -1);
        EXPECT_FALSE(ng_uci_is_free("zt"));
        EXPECT_LE(slept_ms, NG_UCI_LOCK_WAIT_MS) << path;
        EXPECT_EQ(config(), BASE);
        close(fd);
        EXPECT_EQ(ng_uci_commit("zt"), 0) << "the changes are still there when the lock is gone";
        EXPECT_EQ(shell("uci get zt.a.one"), "2\n");
    }
}

TEST_F(Commit, NobodyGetsALockBetweenOursAndLibucis)
{
    write_file(DELTA, "zt.b.two='2'\n");
    rival_watches = true;
    EXPECT_TRUE(ng_uci_exists("zt.b.two"));
    EXPECT_EQ(act(uci_set_string, "2", "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_flush(), 0);
    EXPECT_EQ(act(uci_set_string, "3", "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_commit("zt"), 0);
    EXPECT_EQ(act(uci_set_string, "4", "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_revert("zt"), 0);
    EXPECT_EQ(rival_locks, 0);
    uci_context *unprotected = uci_alloc_context();
    EXPECT_EQ(uci_load(unprotected, "zt", nullptr), UCI_OK);
    EXPECT_GT(rival_locks, 0) << "libuci alone lets others in";
    uci_free_context(unprotected);
    rival_watches = false;
}

TEST_F(Commit, SavingOnFullDiskTearsNothingAndLosesNothing)
{
    const small_disk disk("/tmp/.uci", "size=8k", [] { write_file(DELTA, "zt.b.two='2'\n"); });
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(act(uci_set_string, std::string(8000, 'x').c_str(), "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_flush(), -1);
    EXPECT_EQ(delta(), "zt.b.two='2'\n");
    EXPECT_EQ(logged("Failed to save changes of zt: No space left on device"), 1);
    EXPECT_EQ(ng_uci_flush(), -1) << "the changes are still there";

    disk.make_room();
    EXPECT_EQ(act(uci_set_string, "2", "zt.a.one"), 0);
    write_file(DELTA, "zt.b.two='2'\nzt.b.tor"); // another process was cut short
    EXPECT_EQ(ng_uci_flush(), 0);
    EXPECT_EQ(shell("uci get zt.a.one; uci get zt.b.two"), "2\n2\n");
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
            EXPECT_EQ(act(uci_set_string, "2", name), 0);
        shell(fault.before);
        zu_descriptor rival(fault.locked ? open(fault.locked, O_RDONLY | O_CLOEXEC) : -1);
        EXPECT_TRUE(!fault.locked || flock(rival, LOCK_EX) == 0);
        unmovable = fault.unmovable;
        bool changed = true;
        EXPECT_EQ(ng_uci_commit_all(PACKAGES, &changed), -1);
        EXPECT_FALSE(changed);
        unmovable = nullptr;
        rival = zu_descriptor(-1);
        shell(fault.after);
        for (const char *path : {CONFIG, "/etc/config/zu", "/etc/config/zv"})
            EXPECT_EQ(read_file(path), BASE) << path;
        EXPECT_EQ(left_behind(), 0);

        EXPECT_EQ(ng_uci_commit_all(PACKAGES, &changed), 0) << "the changes are still there";
        EXPECT_TRUE(changed);
        EXPECT_EQ(shell("for i in t u v; do uci get z$i.a.one; done"), "2\n2\n2\n");
        EXPECT_EQ(shell("stat -c %a /etc/config/z[tuv]"), "640\n640\n640\n");
        EXPECT_EQ(left_behind(), 0);
    }
    EXPECT_EQ(logged("NOTICE: There is no package missing"), 1) << "which is no fault";
    shell("rm /etc/config/z[uv]");
}

TEST_F(Commit, GoesWhereThePackageWasReadFrom)
{
    shell("mkdir -p /var/run/uci; cp /etc/config/zt /var/run/uci/zt; "
          "mv /etc/config/zt /etc/config/behind; ln -s behind /etc/config/zt");
    EXPECT_EQ(act(uci_set_string, "2", "zt.a.one"), 0);
    ASSERT_EQ(ng_uci_commit("zt"), 0);
    EXPECT_EQ(shell("uci get zt.a.one"), "2\n");
    const zu_descriptor rival(open("/var/run/uci/zt", O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(rival, LOCK_EX), 0);
    EXPECT_FALSE(ng_uci_is_free("zt"));
    EXPECT_EQ(config(), BASE) << "the override is what was changed";
    shell("rm /var/run/uci/zt");
    (void)ng_uci_renew_change_context();
    EXPECT_EQ(act(uci_set_string, "3", "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_commit("zt"), 0);
    EXPECT_EQ(shell("uci get zt.a.one; readlink /etc/config/zt"), "3\nbehind\n");
    shell("rm /etc/config/zt /etc/config/behind");
}

TEST_F(Commit, RemovesWhatAPowerCutLeft)
{
    write_file("/etc/config/.zt.new", "old");
    EXPECT_EQ(act(uci_set_string, "2", "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_commit("zt"), 0);
    EXPECT_EQ(left_behind(), 0);
    EXPECT_EQ(shell("uci get zt.a.one"), "2\n");
    // Half of a commit, with an old file that cannot be put back yet.
    write_file("/etc/config/.zt.undo", BASE);
    ASSERT_EQ(symlink("/etc/config/zt\n", "/etc/config/.commit"), 0);
    shell("rm /etc/config/zt; mkdir /etc/config/zt; rm -f /var/log/journal");
    EXPECT_FALSE(ng_uci_recover());
    EXPECT_EQ(ng_uci_check_readable("tarn_net"), NG_UCI_UNREADABLE);
    shell("rmdir /etc/config/zt");
    EXPECT_EQ(ng_uci_check_readable("tarn_net"), NG_UCI_READABLE);
    EXPECT_EQ(config(), BASE);
    EXPECT_EQ(left_behind(), 0);
    uloop_timeout end{};
    end.cb = [](uloop_timeout *) { uloop_end(); };
    uloop_init();
    uloop_timeout_set(&end, 1100); // after ours
    uloop_run();
    uloop_done();
    EXPECT_NE(shell("cat /var/log/journal").find("reload_config"), std::string::npos);
}
