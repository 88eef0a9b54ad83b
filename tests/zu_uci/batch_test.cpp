// Batch files: written whole or not at all, applied by us as by the uci tool, refused when broken.
#include <sys/mount.h>

#include "platform/zu/ng_uci_batch.h"
#include "uci_fixture.h"

using Batch = uci_fixture;

constexpr const char *PATH = "/tmp/zu-batch";

/// A batch of all commands with values that a shell or a parser could stumble over.
static int write_hostile(const char *path)
{
    ng_uci_batch *batch = ng_uci_batch_open(path);
    ng_uci_batch_set_fmt_string(batch, "it's 'quoted'", "zt.%s.one", "a");
    ng_uci_batch_set_fmt_string(batch, "$(touch /tmp/pwned) `id` \\' \\n \" # ; | a=b", "zt.a.two");
    ng_uci_batch_set_fmt_string(batch, "  blanks  ", "zt.a.three");
    ng_uci_batch_set_fmt_string(batch, "'", "zt.a.four");
    ng_uci_batch_set_fmt_string(batch, "h\xc3\xa9 \xff\x80", "zt.a.five");
    ng_uci_batch_set_fmt_string(batch, "", "zt.b.one");
    ng_uci_batch_set_fmt_int(batch, -36, "zt.a.channel%d", 1);
    ng_uci_batch_set_fmt_string(batch, "part", "zt.made");
    ng_uci_batch_del_fmt(batch, "zt.a.single");
    ng_uci_batch_fmt_list(batch, "p", "zt.a.items");
    ng_uci_batch_fmt_list(batch, "''", "zt.made.items");
    ng_uci_batch_fmt_list(batch, "two words", "zt.made.items");
    return ng_uci_batch_close(batch);
}

TEST_F(Batch, HostileValuesComeBackAndTheToolDoesTheSame)
{
    unlink(PATH);
    ASSERT_EQ(0, write_hostile(PATH));
    struct stat info;
    ASSERT_EQ(0, stat(PATH, &info));
    EXPECT_EQ(0600u, info.st_mode & 07777);

    ASSERT_EQ(0, ng_uci_batch_apply(PATH, true));
    const std::string ours = shell("uci show zt | sort");
    std::string text;
    EXPECT_EQ(0, ng_uci_get_string(text, "zt.a.two"));
    EXPECT_EQ("$(touch /tmp/pwned) `id` \\' \\n \" # ; | a=b", text);
    EXPECT_EQ(0, ng_uci_get_string(text, "zt.a.five"));
    EXPECT_EQ("h\xc3\xa9 \xff\x80", text);
    EXPECT_EQ("q r p\n", shell("uci get zt.a.items"));
    EXPECT_NE(0, access("/tmp/pwned", F_OK));

    reset();
    EXPECT_EQ("", shell(std::string("uci batch <") + PATH + " 2>&1; uci commit zt 2>&1"));
    EXPECT_EQ(ours, shell("uci show zt | sort"));
    EXPECT_EQ(0, logged("ERROR"));
}

TEST_F(Batch, AppliesWithoutCommitAndPastWhatCannotBeMade)
{
    unlink(PATH);
    write_file(PATH, "# by hand\n\nset zt.none.one='1'\nset zt.a.one='2'\n");
    chmod(PATH, 0600);
    EXPECT_EQ(0, ng_uci_batch_apply(PATH, false));
    EXPECT_EQ(1, logged("zt.none.one"));
    EXPECT_EQ(0, ng_uci_flush());
    EXPECT_EQ("zt.a.one='2'\n", delta());
    EXPECT_EQ(BASE, config());
    write_file(PATH, "set missing.a.one='1'\n");
    EXPECT_EQ(0, ng_uci_batch_apply(PATH, true)) << "for somebody who is not there";
}

TEST_F(Batch, BrokenFilesChangeNothing)
{
    const std::string broken[] = {
        "set zt.a.one='1",
        "set zt.a.one=1",
        "set zt.a.one=1'",
        "set zt.a.one",
        "set zt.a.one='it's'",
        "set zt.a.one='a'\\''",
        "set zt.a.one='a' 'b'",
        "set  zt.a.one='a'",
        "set zt.a.one='\t'",
        std::string("set zt.a.one='a\0b'", 18),
        std::string("set zt.a.o\0e='b'", 16),
        "set zt.a.o-e='a'",
        "set zt='a'",
        "delete zt.a.one='a'",
        "delete zt.a.one ",
        "SET zt.a.one='a'",
        "rename zt.a.one='two'",
        "commit zt",
        "set zt.a.one='a'\r",
        "nonsense",
        " ",
    };
    for (const std::string &line : broken) {
        SCOPED_TRACE(line);
        unlink(PATH);
        write_file(PATH, "set zt.a.one='2'\n" + line + "\nset zt.b.one='2'\n");
        chmod(PATH, 0600);
        EXPECT_EQ(-1, ng_uci_batch_apply(PATH, true));
        EXPECT_EQ(BASE, config());
        EXPECT_EQ("", delta());
    }
    EXPECT_EQ(static_cast<int>(std::size(broken)), logged("Line 2 of /tmp/zu-batch"));
}

TEST_F(Batch, OnlyOurOwnPlainFilesAreApplied)
{
    unlink(PATH);
    EXPECT_EQ(-1, ng_uci_batch_apply(PATH, true));
    write_file(PATH, "set zt.a.one='2'\n");
    chmod(PATH, 0666);
    EXPECT_EQ(-1, ng_uci_batch_apply(PATH, true)) << "others could have written it";
    chmod(PATH, 0600);
    ASSERT_EQ(0, symlink(PATH, "/tmp/zu-link"));
    EXPECT_EQ(-1, ng_uci_batch_apply("/tmp/zu-link", true));
    ASSERT_EQ(0, mkfifo("/tmp/zu-fifo", 0600));
    EXPECT_EQ(-1, ng_uci_batch_apply("/tmp/zu-fifo", true));
    EXPECT_EQ(BASE, config());
    EXPECT_EQ(4, logged("ERROR"));
    shell(std::string("truncate -s 4194304 ") + PATH + "; tr '\\0' '\\n' <" + PATH +
          " >/tmp/zu-limit");
    chmod("/tmp/zu-limit", 0600);
    EXPECT_EQ(0, ng_uci_batch_apply("/tmp/zu-limit", true)) << "the largest";
    EXPECT_EQ("2\n", shell("uci get zt.a.one; echo >>/tmp/zu-limit"));
    EXPECT_EQ(-1, ng_uci_batch_apply("/tmp/zu-limit", true));
}

TEST_F(Batch, NeverWritesOverOrThroughWhatIsThere)
{
    write_file("/tmp/zu-target", "precious");
    ASSERT_EQ(0, symlink("/tmp/zu-target", "/tmp/zu-planted"));
    ASSERT_EQ(0, symlink("/tmp/zu-nowhere", "/tmp/zu-dangling"));
    for (const char *path : {"/tmp/zu-target", "/tmp/zu-planted", "/tmp/zu-dangling", "/no/dir"})
        EXPECT_EQ(-1, write_hostile(path)) << path;
    EXPECT_EQ("precious", read_file("/tmp/zu-target"));
    EXPECT_NE(0, access("/tmp/zu-nowhere", F_OK));
    EXPECT_EQ(4, logged("ERROR"));
}

TEST_F(Batch, ThatCannotBeWrittenWholeIsRemoved)
{
    for (const char *value : {"two\nlines", "\r", "\x1b"}) {
        unlink(PATH);
        ng_uci_batch *batch = ng_uci_batch_open(PATH);
        ng_uci_batch_set_fmt_string(batch, "1", "zt.a.one");
        ng_uci_batch_set_fmt_string(batch, value, "zt.a.two");
        EXPECT_EQ(-1, ng_uci_batch_close(batch));
        EXPECT_NE(0, access(PATH, F_OK));
    }
    ng_uci_batch *batch = ng_uci_batch_open(PATH);
    ng_uci_batch_del_fmt(batch, "zt.a.one; reboot");
    EXPECT_EQ(-1, ng_uci_batch_close(batch));

    ASSERT_EQ(0, mkdir("/tmp/zu-full", 0700));
    ASSERT_EQ(0, mount("tmpfs", "/tmp/zu-full", "tmpfs", 0, "size=4k"));
    batch = ng_uci_batch_open("/tmp/zu-full/batch");
    for (int i = 0; i < 1000; i++)
        ng_uci_batch_set_fmt_int(batch, i, "zt.a.option%d", i);
    EXPECT_EQ(-1, ng_uci_batch_close(batch));
    EXPECT_NE(0, access("/tmp/zu-full/batch", F_OK));
    EXPECT_EQ(0, umount("/tmp/zu-full"));
}
