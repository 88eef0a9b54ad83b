// Save actions: what each makes of a package, what is refused, and when it reaches the delta file.
#include <sys/inotify.h>

extern "C" {
#include <libubox/uloop.h>
}

#include "uci_fixture.h"

using Change = uci_fixture;

namespace {

/// Counts how often a file of the save directory was written and closed.
class write_counter {
public:
    write_counter() : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        EXPECT_GE(inotify_add_watch(fd_, "/tmp/.uci", IN_CLOSE_WRITE), 0);
    }
    ~write_counter() { close(fd_); }
    write_counter(const write_counter &) = delete;
    write_counter &operator=(const write_counter &) = delete;

    int count()
    {
        alignas(inotify_event) char events[4096];
        ssize_t got;
        while ((got = read(fd_, events, sizeof events)) > 0)
            for (ssize_t at = 0; at < got; seen_++) {
                const auto *event = reinterpret_cast<const inotify_event *>(events + at);
                at += static_cast<ssize_t>(sizeof *event) + event->len;
            }
        return seen_;
    }

private:
    int fd_;
    int seen_ = 0;
};

} // namespace

TEST_F(Change, EachActionMakesItsChange)
{
    const struct {
        const char *what;
        ng_uci_action action;
        const char *value, *name;
        const char *delta; ///< what it adds to the delta file
    } cases[] = {
        {"set", uci_set_string, "2", "zt.a.one", "zt.a.one='2'\n"},
        {"set anew", uci_set_string, "it's", "zt.a.two", "zt.a.two='it'\\''s'\n"},
        {"set to the same", uci_set_string, "1", "zt.a.one", ""},
        {"make a section", uci_set_string, "part", "zt.c", "zt.c='part'\n"},
        {"by index", uci_set_string, "2", "zt.@part[-1].one", "zt.b.one='2'\n"},
        {"set to nothing deletes", uci_set_string, "", "zt.a.one", "-zt.a.one\n"},
        {"add", ng_uci_add_list, "s", "zt.a.items", "|zt.a.items='s'\n"},
        {"add again: goes to the end", ng_uci_add_list, "p", "zt.a.items",
         "-zt.a.items\n|zt.a.items='q'\n|zt.a.items='r'\n|zt.a.items='p'\n"},
        {"add to a string", ng_uci_add_list, "y", "zt.a.single",
         "-zt.a.single\n|zt.a.single='x'\n|zt.a.single='y'\n"},
        {"add its own text to a string", ng_uci_add_list, "x", "zt.a.single",
         "-zt.a.single\n|zt.a.single='x'\n"},
        {"remove", ng_uci_del_list, "q", "zt.a.items",
         "-zt.a.items\n|zt.a.items='p'\n|zt.a.items='r'\n"},
        {"remove what is not there", ng_uci_del_list, "z", "zt.a.items", ""},
        {"remove from no list", ng_uci_del_list, "z", "zt.a.none", ""},
        {"remove from no section", ng_uci_del_list, "z", "zt.none.none", ""},
        {"remove a string", ng_uci_del_list, "x", "zt.a.single", "-zt.a.single\n"},
        {"remove another string", ng_uci_del_list, "z", "zt.a.single", ""},
        {"remove all", ng_uci_del_list, nullptr, "zt.a.items", "-zt.a.items\n"},
        {"delete", ng_uci_delete_option, nullptr, "zt.a.items", "-zt.a.items\n"},
        {"delete a section", ng_uci_delete_option, nullptr, "zt.a", "-zt.a\n"},
        {"delete what is not there", ng_uci_delete_option, nullptr, "zt.none.x", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        reset();
        EXPECT_EQ(0, act(c.action, c.value, c.name));
        EXPECT_EQ("", delta()) << "nothing is written before the flush";
        EXPECT_EQ(0, ng_uci_flush());
        EXPECT_EQ(c.delta, delta());
    }
    EXPECT_EQ(0, logged("ERROR"));
}

TEST_F(Change, WhatIsNotAcceptableIsRefusedAndLoggedOnce)
{
    const struct {
        ng_uci_action action;
        const char *value, *name;
    } cases[] = {
        {uci_set_string, "two\nlines", "zt.a.one"},
        {uci_set_string, "tab\t", "zt.a.one"},
        {uci_set_string, "\x7f", "zt.a.one"},
        {ng_uci_add_list, "\x1b[2J", "zt.a.items"},
        {uci_set_string, nullptr, "zt.a.one"},
        {ng_uci_add_list, "x", "zt.a"},
        {uci_set_string, "x", "zt"},
        {uci_set_string, "x", "zt.a.one.more"},
        {uci_set_string, "x", "zt.a.one='y'"},
        {uci_set_string, "x", "zt.a-b.one"},
        {uci_set_string, "x", "../zt.a.one"},
        {uci_set_string, "x", "zt.none.one"},
        {uci_set_string, "bad type", "zt.c"},
        {uci_set_string, "x", "zt.@part[9].one"},
        {ng_uci_add_list, "x", "zt.none.items"},
    };
    int refused = 0;
    for (const auto &c : cases) {
        EXPECT_EQ(-1, act(c.action, c.value, c.name)) << c.name;
        EXPECT_EQ(++refused, logged("ERROR")) << c.name;
    }
    EXPECT_EQ(0, ng_uci_flush());
    EXPECT_EQ("", delta());
    EXPECT_EQ(0, logged("two")) << "a refused value may be a key";
}

TEST_F(Change, ListHoldsNoDuplicatesAndKeepsOrder)
{
    for (const char *value : {"s", "q", "s", "p", "t", "q"})
        EXPECT_EQ(0, act(ng_uci_add_list, value, "zt.a.items"));
    EXPECT_EQ(0, act(ng_uci_del_list, "t", "zt.a.items"));
    EXPECT_EQ(0, act(ng_uci_add_list, "t", "zt.a.items"));
    EXPECT_EQ(0, act(ng_uci_delete_option, nullptr, "zt.a.single"));
    EXPECT_EQ(0, act(ng_uci_add_list, "x", "zt.a.single")) << "known items go with their list";
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ("r s p q t", shell("uci get zt.a.items").substr(0, 9));
    EXPECT_EQ("x\n", shell("uci get zt.a.single"));
}

TEST_F(Change, ThousandsOfAdditionsAreOneWrite)
{
    constexpr int ENTRIES = 12000;
    write_counter writes;
    EXPECT_EQ(0, act(ng_uci_delete_option, nullptr, "zt.a.items"));
    std::string expected = "-zt.a.items\n", committed;
    for (int i = 0; i < ENTRIES; i++) {
        char address[32];
        snprintf(address, sizeof address, "02:00:00:00:%02x:%02x", static_cast<unsigned>(i) >> 8,
                 static_cast<unsigned>(i) & 0xff);
        ASSERT_EQ(0, act(ng_uci_add_list, address, "zt.a.items"));
        expected += std::string("|zt.a.items='") + address + "'\n";
        committed += std::string("\tlist items '") + address + "'\n";
    }
    EXPECT_EQ(0, writes.count());
    EXPECT_EQ(0, ng_uci_flush());
    EXPECT_EQ(1, writes.count());
    EXPECT_EQ(expected, delta()) << "no walk of the list for what is not in it";
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_NE(std::string::npos, config().find(committed));
}

TEST_F(Change, CallbackEndsWithOneWriteAndFreshFiles)
{
    uloop_init();
    static std::string before;
    uloop_timeout callback{};
    callback.cb = [](uloop_timeout *) {
        for (const char *value : {"2", "3", "4"})
            ng_uci_save_action_ctx(ng_uci_change_context(), uci_set_string, value, "zt.a.one");
        ng_uci_save_action_int_ctx(ng_uci_change_context(), uci_set_string, -7, "zt.%s.%s", "b",
                                   "number");
        before = read_file(DELTA);
    };
    uloop_timeout_set(&callback, 0);
    write_counter writes;
    uloop_run_timeout(20);
    EXPECT_EQ("", before);
    EXPECT_EQ(1, writes.count());
    EXPECT_EQ("zt.a.one='4'\nzt.b.number='-7'\n", delta());

    // Another process changes the package; the next callback reads it.
    shell("uci set zt.a.one=theirs");
    std::string text;
    EXPECT_EQ(0, ng_uci_get_string(text, "zt.a.one"));
    EXPECT_EQ("theirs", text);
    shell("uci set zt.a.one=later");
    EXPECT_EQ(0, ng_uci_get_string(text, "zt.a.one"));
    EXPECT_EQ("theirs", text) << "one callback sees one state";
    uloop_run_timeout(20);
    EXPECT_EQ(0, ng_uci_get_string(text, "zt.a.one"));
    EXPECT_EQ("later", text);
    uloop_done();
}

TEST_F(Change, WholeListIsAsIfAddedOneByOne)
{
    const std::vector<std::string> items = {"s", "q", "s", "", "it's", "q"};
    for (const std::string &item : items)
        EXPECT_EQ(0, act(ng_uci_add_list, item.c_str(), "zt.b.items"));
    EXPECT_EQ(0, ng_uci_set_list(items, "zt.a.items"));
    EXPECT_EQ(0, ng_uci_set_list({}, "zt.a.single"));
    EXPECT_EQ(0, act(ng_uci_add_list, "more", "zt.a.items"));
    EXPECT_EQ(0, act(ng_uci_add_list, "more", "zt.b.items"));
    EXPECT_EQ(0, ng_uci_commit("zt"));
    EXPECT_EQ(shell("uci get zt.b.items"), shell("uci get zt.a.items"));
    EXPECT_FALSE(ng_uci_exists("zt.a.single"));
    EXPECT_EQ(-1, ng_uci_set_list({"a", "b\n"}, "zt.a.items"));
    EXPECT_EQ(-1, ng_uci_set_list({"a"}, "zt.none.items"));
    EXPECT_EQ(shell("uci get zt.b.items"), shell("uci get zt.a.items"));
}

TEST_F(Change, WhatComesToNothingIsNoChange)
{
    const std::string before = config();
    EXPECT_EQ(0, act(ng_uci_delete_option, nullptr, "zt.a.items"));
    for (const char *value : {"p", "q", "r"})
        EXPECT_EQ(0, act(ng_uci_add_list, value, "zt.a.items"));
    EXPECT_EQ(0, act(ng_uci_delete_option, nullptr, "zt.b"));
    EXPECT_EQ(0, act(uci_set_string, "part", "zt.b"));
    EXPECT_EQ(0, act(uci_set_string, "1", "zt.b.one"));
    EXPECT_EQ(0, act(uci_set_string, "2", "zt.a.one"));
    EXPECT_EQ(0, act(uci_set_string, "1", "zt.a.one"));
    EXPECT_EQ(0, act(uci_set_string, "part", "zt.new"));
    EXPECT_EQ(0, act(ng_uci_delete_option, nullptr, "zt.new"));
    bool changed = true;
    EXPECT_EQ(0, ng_uci_commit("zt", &changed));
    EXPECT_FALSE(changed);
    EXPECT_EQ(before, config());

    EXPECT_EQ(0, act(uci_set_string, "kind", "zt.b"));
    EXPECT_EQ(0, act(ng_uci_del_list, "q", "zt.a.items"));
    EXPECT_EQ(0, ng_uci_commit("zt", &changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ("p r\nkind\n", shell("uci get zt.a.items; uci get zt.b"));
}

TEST_F(Change, RevertDropsWhatWasSavedAndWhatWasNot)
{
    EXPECT_EQ(0, act(uci_set_string, "saved", "zt.a.one"));
    EXPECT_EQ(0, ng_uci_flush());
    EXPECT_EQ(0, act(ng_uci_add_list, "new", "zt.a.items"));
    EXPECT_EQ(0, ng_uci_revert("zt"));
    EXPECT_EQ(0, act(ng_uci_add_list, "new", "zt.a.items"));
    EXPECT_EQ(0, ng_uci_flush());
    EXPECT_EQ("|zt.a.items='new'\n", delta());
    EXPECT_EQ(-1, ng_uci_revert("missing"));
}
