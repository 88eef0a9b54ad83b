// What loading refuses, and how the tool answers wrong calls.
#include "context.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class Library : public testing::Test {
protected:
    void SetUp() override
    {
        write_file(dirs.conf("net"), "config iface 'lan'\n\toption ip '1'\n");
        ctx = open_context(dirs);
    }

    uci_directories dirs;
    context_handle ctx;
};

} // namespace

TEST_F(Library, LoadRefusesWhatItMust)
{
    write_file(dirs.conf("bad"), "config a\nbogus\n");
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx.get(), "none", nullptr));
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx.get(), "a.b", nullptr));
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx.get(), "../net", nullptr));
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
