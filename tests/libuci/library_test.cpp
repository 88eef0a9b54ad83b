// What look-ups answer and loading refuses, and how the tool answers wrong calls.
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "context.h"

namespace {

class Library : public testing::Test {
protected:
    void SetUp() override
    {
        write_file(dirs.conf("net"), "config iface 'lan'\n\toption ip '1'\n\nconfig rule\n"
                                     "\toption src 'x'\n\nconfig rule 'named'\n");
        ctx = open_context(dirs);
    }

    int act(int (*action)(uci_context *, uci_ptr *), const char *tuple)
    {
        return change(ctx.get(), action, tuple);
    }

    uci_directories dirs;
    context_handle ctx;
};

} // namespace

TEST_F(Library, LookupAnswersByHowMuchOfTheTupleIsThere)
{
    const struct {
        const char *tuple;
        bool extended;
        int err;
        bool complete;
        uci_type target, last;
        const char *section;
    } cases[] = {
        {"net.lan", false, 0, true, UCI_TYPE_SECTION, UCI_TYPE_SECTION, "lan"},
        {"net.lan.ip=a=b.c", false, 0, true, UCI_TYPE_OPTION, UCI_TYPE_OPTION, "lan"},
        {"net.lan.none", false, 0, false, UCI_TYPE_OPTION, UCI_TYPE_SECTION, "lan"},
        {"net.@rule[0]", true, 0, true, UCI_TYPE_SECTION, UCI_TYPE_SECTION, "cfg0292bd"},
        {"net.@rule[-1]", true, 0, true, UCI_TYPE_SECTION, UCI_TYPE_SECTION, "named"},
        {"net.@[-3].ip", true, 0, true, UCI_TYPE_OPTION, UCI_TYPE_OPTION, "lan"},
        {"net.@rule[2]", true, 0, false, UCI_TYPE_SECTION, UCI_TYPE_PACKAGE, "@rule[2]"},
        {"net.@rule[0]", false, UCI_ERR_INVAL, false, {}, {}, nullptr},
        {"net.", true, UCI_ERR_INVAL, false, {}, {}, nullptr},
        {"net.lan.ip.x", true, UCI_ERR_PARSE, false, {}, {}, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.tuple);
        std::string tuple = c.tuple;
        uci_ptr ptr;
        ASSERT_EQ(uci_lookup_ptr(ctx.get(), &ptr, tuple.data(), c.extended), c.err);
        EXPECT_EQ(ctx->err, c.err);
        if (c.err)
            continue;
        EXPECT_EQ((ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0, c.complete);
        EXPECT_EQ(ptr.target, c.target);
        EXPECT_EQ(ptr.last->type, c.last);
        EXPECT_STREQ(ptr.section, c.section);
        if (strchr(c.tuple, '=')) {
            EXPECT_STREQ(ptr.value, "a=b.c");
        }
    }
}

TEST_F(Library, LoadRefusesWhatItMust)
{
    write_file(dirs.conf("bad"), "config a\nbogus\n");
    EXPECT_EQ(uci_load(ctx.get(), "none", nullptr), UCI_ERR_NOTFOUND);
    for (const char *no_package : {"a.b", "../conf/net", "net/"})
        EXPECT_EQ(uci_load(ctx.get(), no_package, nullptr), UCI_ERR_NOTFOUND) << no_package;
    for (const char *invalid : {"", "n\xc3\xa9t"})
        EXPECT_EQ(uci_load(ctx.get(), invalid, nullptr), UCI_ERR_INVAL) << invalid;
    EXPECT_EQ(uci_load(ctx.get(), "bad", nullptr), UCI_ERR_PARSE);
    char *text = nullptr;
    uci_get_errorstr(ctx.get(), &text, "tool");
    EXPECT_STREQ(text, "tool: Parse error (invalid command) at line 2, byte 0");
    free(text);
    EXPECT_EQ(uci_load(ctx.get(), "net", nullptr), 0);
    EXPECT_EQ(uci_load(ctx.get(), "net", nullptr), UCI_ERR_DUPLICATE);
    uci_get_errorstr(ctx.get(), &text, nullptr);
    EXPECT_STREQ(text, "Duplicate entry");
    free(text);
    EXPECT_EQ(act(uci_set, "net.missing.opt="), UCI_ERR_INVAL);
}

TEST(Tool, StatusWhenItIsCalledWrongly)
{
    uci_directories dirs;
    EXPECT_EQ(run_tool({}, "").exit, 0);
    EXPECT_EQ(run_tool({"-Z"}, "").exit, 0);
    EXPECT_EQ(run_tool({"help"}, "").exit, 0);
    EXPECT_EQ(dirs.run({"bogus"}).exit, 255);
    EXPECT_EQ(dirs.run({"get"}).exit, 255);
    EXPECT_NE(dirs.run({"set", "a", "b"}).err.find("Usage:"), std::string::npos);
    EXPECT_EQ(dirs.run({"batch"}, "batch\n").err, "Unknown command\n");
    write_file(dirs.root() + "/commands", "get none.x\nexit\nbogus\n");
    EXPECT_EQ(dirs.run({"-f", dirs.root() + "/commands", "batch"}).err, "uci: Entry not found\n");
}
