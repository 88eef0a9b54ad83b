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
    ASSERT_EQ(write_hostile(PATH), 0);
    struct stat info;
    ASSERT_EQ(stat(PATH, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);

    ASSERT_EQ(ng_uci_batch_apply(PATH, true), 0);
    const std::string ours = shell("uci show zt | sort");
    std::string text;
    EXPECT_EQ(ng_uci_get_string(text, "zt.a.two"), 0);
    EXPECT_EQ(text, "$(touch /tmp/pwned) `id` \\' \\n \" # ; | a=b");
    EXPECT_EQ(ng_uci_get_string(text, "zt.a.five"), 0);
    EXPECT_EQ(text, "h\xc3\xa9 \xff\x80");
    EXPECT_EQ(shell("uci get zt.a.items"), "q r p\n");
    EXPECT_NE(access("/tmp/pwned", F_OK), 0);

    reset();
    EXPECT_EQ(shell(std::string("uci batch <") + PATH + " 2>&1; uci commit zt 2>&1"), "");
    EXPECT_EQ(shell("uci show zt | sort"), ours);
    EXPECT_EQ(logged("ERROR"), 0);
}

TEST_F(Batch, AppliesWithoutCommitAndPastWhatCannotBeMade)
{
    unlink(PATH);
    write_file(PATH, "# by hand\n\nset zt.none.one='1'\nset zt.a.one='2'\n");
    chmod(PATH, 0600);
    EXPECT_EQ(ng_uci_batch_apply(PATH, false), 0);
    EXPECT_EQ(logged("zt.none.one"), 1);
    EXPECT_EQ(ng_uci_flush(), 0);
    EXPECT_EQ(delta(), "zt.a.one='2'\n");
    EXPECT_EQ(config(), BASE);
    write_file(PATH, "set missing.a.one='1'\n");
    EXPECT_EQ(ng_uci_batch_apply(PATH, true), 0) << "for somebody who is not there";
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
        EXPECT_EQ(ng_uci_batch_apply(PATH, true), -1);
        EXPECT_EQ(config(), BASE);
        EXPECT_EQ(delta(), "");
    }
    EXPECT_EQ(static_cast<int>(std::size(broken)), logged("Line 2 of /tmp/zu-batch"));
}

TEST_F(Batch, OnlyOurOwnPlainFilesAreApplied)
{
    unlink(PATH);
    EXPECT_EQ(ng_uci_batch_apply(PATH, true), -1);
    write_file(PATH, "set zt.a.one='2'\n");
    chmod(PATH, 0666);
    EXPECT_EQ(ng_uci_batch_apply(PATH, true), -1) << "others could have written it";
    chmod(PATH, 0600);
    ASSERT_EQ(symlink(PATH, "/tmp/zu-link"), 0);
    EXPECT_EQ(ng_uci_batch_apply("/tmp/zu-link", true), -1);
    ASSERT_EQ(mkfifo("/tmp/zu-fifo", 0600), 0);
    EXPECT_EQ(ng_uci_batch_apply("/tmp/zu-fifo", true), -1);
    EXPECT_EQ(config(), BASE);
    EXPECT_EQ(logged("ERROR"), 4);
    shell(std::string("truncate -s 4194304 ") + PATH + "; tr '\\0' '\\n' <" + PATH +
          " >/tmp/zu-limit");
    chmod("/tmp/zu-limit", 0600);
    EXPECT_EQ(ng_uci_batch_apply("/tmp/zu-limit", true), 0) << "the largest";
    EXPECT_EQ(shell("uci get zt.a.one; echo >>/tmp/zu-limit"), "2\n");
    EXPECT_EQ(ng_uci_batch_apply("/tmp/zu-limit", true), -1);
}

TEST_F(Batch, NeverWritesOverOrThroughWhatIsThere)
{
    write_file("/tmp/zu-target", "precious");
    ASSERT_EQ(symlink("/tmp/zu-target", "/tmp/zu-planted"), 0);
    ASSERT_EQ(symlink("/tmp/zu-nowhere", "/tmp/zu-dangling"), 0);
    for (const char *path : {"/tmp/zu-target", "/tmp/zu-planted", "/tmp/zu-dangling", "/no/dir"})
        EXPECT_EQ(write_hostile(path), -1) << path;
    EXPECT_EQ(read_file("/tmp/zu-target"), "precious");
    EXPECT_NE(access("/tmp/zu-nowhere", F_OK), 0);
    EXPECT_EQ(logged("ERROR"), 4);
}

TEST_F(Batch, ThatCannotBeWrittenWholeIsRemoved)
{
    for (const char *value : {"two\nlines", "\r", "\x1b"}) {
        unlink(PATH);
        ng_uci_batch *batch = ng_uci_batch_open(PATH);
        ng_uci_batch_set_fmt_string(batch, "1", "zt.a.one");
        ng_uci_batch_set_fmt_string(batch, value, "zt.a.two");
        EXPECT_EQ(ng_uci_batch_close(batch), -1);
        EXPECT_NE(access(PATH, F_OK), 0);
    }
    ng_uci_batch *batch = ng_uci_batch_open(PATH);
    ng_uci_batch_del_fmt(batch, "zt.a.one; reboot");
    EXPECT_EQ(ng_uci_batch_close(batch), -1);

    ASSERT_EQ(mkdir("/tmp/zu-full", 0700), 0);
    ASSERT_EQ(mount("tmpfs", "/tmp/zu-full", "tmpfs", 0, "size=4k"), 0);
    batch = ng_uci_batch_open("/tmp/zu-full/batch");
    for (int i = 0; i < 1000; i++)
        ng_uci_batch_set_fmt_int(batch, i, "zt.a.option%d", i);
    EXPECT_EQ(ng_uci_batch_close(batch), -1);
    EXPECT_NE(access("/tmp/zu-full/batch", F_OK), 0);
    EXPECT_EQ(umount("/tmp/zu-full"), 0);
}
