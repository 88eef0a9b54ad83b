// Commits: what other processes changed is kept, and no full disk ever costs the old file.
#include "uci_fixture.h"

#include <dirent.h>
#include <sys/mount.h>

/// What the wrapped uci_commit puts in the file's place while it reports success; null: it commits.
static const char *false_success;

extern "C" int __real_uci_commit(uci_context *ctx, uci_package **package, bool overwrite);
extern "C" int __wrap_uci_commit(uci_context *ctx, uci_package **package, bool overwrite);

int __wrap_uci_commit(uci_context *ctx, uci_package **package, bool overwrite)
{
    const int result = __real_uci_commit(ctx, package, overwrite);
    if (false_success) {
        write_file("/etc/config/new", false_success);
        rename("/etc/config/new", CONFIG);
    }
    return result;
}

namespace {

struct Commit : uci_fixture {
    void TearDown() override
    {
        false_success = nullptr;
        uci_fixture::TearDown();
    }
};

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

TEST_F(Commit, PutsTheOldFileBackWhenTheNewOneIsNotWhole)
{
    for (const char *content : {"", "\nconfig part 'a'\n\toption one"}) {
        reset();
        false_success = content;
        EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
        EXPECT_EQ(-1, ng_uci_commit("zt"));
        EXPECT_EQ(BASE, config());
        EXPECT_EQ(0, left_behind());
        false_success = nullptr;
    }
    EXPECT_EQ(2, logged("not written whole"));
}

TEST_F(Commit, RemovesWhatAPowerCutLeft)
{
    write_file("/etc/config/.zt.old", "old");
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ(0, left_behind());
    EXPECT_EQ("2\n", shell("uci get zt.a.one"));
}
