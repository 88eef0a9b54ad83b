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
        ASSERT_EQ(c.err, uci_lookup_ptr(ctx.get(), &ptr, tuple.data(), c.extended));
        EXPECT_EQ(c.err, ctx->err);
        if (c.err)
            continue;
        EXPECT_EQ(c.complete, (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0);
        EXPECT_EQ(c.target, ptr.target);
        EXPECT_EQ(c.last, ptr.last->type);
        EXPECT_STREQ(c.section, ptr.section);
        if (strchr(c.tuple, '=')) {
            EXPECT_STREQ("a=b.c", ptr.value);
        }
    }
}

TEST_F(Library, LoadRefusesWhatItMust)
{
    write_file(dirs.conf("bad"), "config a\nbogus\n");
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx.get(), "none", nullptr));
    for (const char *no_package : {"a.b", "../conf/net", "net/"})
        EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx.get(), no_package, nullptr)) << no_package;
    for (const char *invalid : {"", "n\xc3\xa9t"})
        EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx.get(), invalid, nullptr)) << invalid;
    EXPECT_EQ(UCI_ERR_PARSE, uci_load(ctx.get(), "bad", nullptr));
    char *text = nullptr;
    uci_get_errorstr(ctx.get(), &text, "tool");
    EXPECT_STREQ("tool: Parse error (invalid command) at line 2, byte 0", text);
    free(text);
    EXPECT_EQ(0, uci_load(ctx.get(), "net", nullptr));
    EXPECT_EQ(UCI_ERR_DUPLICATE, uci_load(ctx.get(), "net", nullptr));
    uci_get_errorstr(ctx.get(), &text, nullptr);
    EXPECT_STREQ("Duplicate entry", text);
    free(text);
    EXPECT_EQ(UCI_ERR_INVAL, act(uci_set, "net.missing.opt="));
}

TEST(Tool, StatusWhenItIsCalledWrongly)
{
    uci_directories dirs;
    EXPECT_EQ(0, run_tool({}, "").exit);
    EXPECT_EQ(0, run_tool({"-Z"}, "").exit);
    EXPECT_EQ(0, run_tool({"help"}, "").exit);
    EXPECT_EQ(255, dirs.run({"bogus"}).exit);
    EXPECT_EQ(255, dirs.run({"get"}).exit);
    EXPECT_NE(std::string::npos, dirs.run({"set", "a", "b"}).err.find("Usage:"));
    EXPECT_EQ("Unknown command\n", dirs.run({"batch"}, "batch\n").err);
    write_file(dirs.root() + "/commands", "get none.x\nexit\nbogus\n");
    EXPECT_EQ("uci: Entry not found\n", dirs.run({"-f", dirs.root() + "/commands", "batch"}).err);
}
