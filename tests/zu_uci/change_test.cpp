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
        EXPECT_EQ(act(c.action, c.value, c.name), 0);
        EXPECT_EQ(delta(), "") << "nothing is written before the flush";
        EXPECT_EQ(ng_uci_flush(), 0);
        EXPECT_EQ(delta(), c.delta);
    }
    EXPECT_EQ(logged("ERROR"), 0);
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
        EXPECT_EQ(act(c.action, c.value, c.name), -1) << c.name;
        EXPECT_EQ(logged("ERROR"), ++refused) << c.name;
    }
    EXPECT_EQ(ng_uci_flush(), 0);
    EXPECT_EQ(delta(), "");
    EXPECT_EQ(logged("two"), 0) << "a refused value may be a key";
}

TEST_F(Change, ListHoldsNoDuplicatesAndKeepsOrder)
{
    for (const char *value : {"s", "q", "s", "p", "t", "q"})
        EXPECT_EQ(act(ng_uci_add_list, value, "zt.a.items"), 0);
    EXPECT_EQ(act(ng_uci_del_list, "t", "zt.a.items"), 0);
    EXPECT_EQ(act(ng_uci_add_list, "t", "zt.a.items"), 0);
    EXPECT_EQ(act(ng_uci_delete_option, nullptr, "zt.a.single"), 0);
    EXPECT_EQ(act(ng_uci_add_list, "x", "zt.a.single"), 0) << "known items go with their list";
    EXPECT_EQ(ng_uci_commit("zt"), 0);
    EXPECT_EQ(shell("uci get zt.a.items").substr(0, 9), "r s p q t");
    EXPECT_EQ(shell("uci get zt.a.single"), "x\n");
}

TEST_F(Change, ThousandsOfAdditionsAreOneWrite)
{
    constexpr int ENTRIES = 12000;
    write_counter writes;
    EXPECT_EQ(act(ng_uci_delete_option, nullptr, "zt.a.items"), 0);
    std::string expected = "-zt.a.items\n", committed;
    for (int i = 0; i < ENTRIES; i++) {
        char address[32];
        snprintf(address, sizeof address, "02:00:00:00:%02x:%02x", static_cast<unsigned>(i) >> 8,
                 static_cast<unsigned>(i) & 0xff);
        ASSERT_EQ(act(ng_uci_add_list, address, "zt.a.items"), 0);
        expected += std::string("|zt.a.items='") + address + "'\n";
        committed += std::string("\tlist items '") + address + "'\n";
    }
    EXPECT_EQ(writes.count(), 0);
    EXPECT_EQ(ng_uci_flush(), 0);
    EXPECT_EQ(writes.count(), 1);
    EXPECT_EQ(delta(), expected) << "no walk of the list for what is not in it";
    EXPECT_EQ(ng_uci_commit("zt"), 0);
    EXPECT_NE(config().find(committed), std::string::npos);
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
    EXPECT_EQ(before, "");
    EXPECT_EQ(writes.count(), 1);
    EXPECT_EQ(delta(), "zt.a.one='4'\nzt.b.number='-7'\n");

    // Another process changes the package; the next callback reads it.
    shell("uci set zt.a.one=theirs");
    std::string text;
    EXPECT_EQ(ng_uci_get_string(text, "zt.a.one"), 0);
    EXPECT_EQ(text, "theirs");
    shell("uci set zt.a.one=later");
    EXPECT_EQ(ng_uci_get_string(text, "zt.a.one"), 0);
    EXPECT_EQ(text, "theirs") << "one callback sees one state";
    uloop_run_timeout(20);
    EXPECT_EQ(ng_uci_get_string(text, "zt.a.one"), 0);
    EXPECT_EQ(text, "later");
    uloop_done();
}

TEST_F(Change, WholeListIsAsIfAddedOneByOne)
{
    const std::vector<std::string> items = {"s", "q", "s", "", "it's", "q"};
    for (const std::string &item : items)
        EXPECT_EQ(act(ng_uci_add_list, item.c_str(), "zt.b.items"), 0);
    EXPECT_TRUE(ng_uci_put_list("zt.a.items", items));
    EXPECT_TRUE(ng_uci_put_list("zt.a.single", {}));
    EXPECT_EQ(act(ng_uci_add_list, "more", "zt.a.items"), 0);
    EXPECT_EQ(act(ng_uci_add_list, "more", "zt.b.items"), 0);
    EXPECT_EQ(ng_uci_commit("zt"), 0);
    EXPECT_EQ(shell("uci get zt.b.items"), shell("uci get zt.a.items"));
    EXPECT_FALSE(ng_uci_exists("zt.a.single"));
    EXPECT_FALSE(ng_uci_put_list("zt.a.items", {"a", "b\n"}));
    EXPECT_FALSE(ng_uci_put_list("zt.none.items", {"a"}));
    EXPECT_EQ(shell("uci get zt.b.items"), shell("uci get zt.a.items"));
}

TEST_F(Change, WhatComesToNothingIsNoChange)
{
    const std::string before = config();
    bool changed = true;
    for (const bool whole : {false, true}) { // what is made anew stands at another place
        for (const char *name : {"zt.a.items", "zt.a.single", whole ? "zt.a" : "zt.a.none"})
            EXPECT_EQ(act(ng_uci_delete_option, nullptr, name), 0);
        EXPECT_EQ(act(uci_set_string, "part", "zt.a"), 0);
        for (const char *value : {"p", "q", "r"})
            EXPECT_EQ(act(ng_uci_add_list, value, "zt.a.items"), 0);
        EXPECT_EQ(act(uci_set_string, "x", "zt.a.single"), 0);
        EXPECT_EQ(act(uci_set_string, "2", "zt.a.one"), 0);
        EXPECT_EQ(act(uci_set_string, "1", "zt.a.one"), 0);
        EXPECT_EQ(act(uci_set_string, "part", "zt.new"), 0);
        EXPECT_EQ(act(ng_uci_delete_option, nullptr, "zt.new"), 0);
        EXPECT_EQ(ng_uci_commit("zt", &changed), 0);
        EXPECT_FALSE(changed);
        EXPECT_EQ(config(), before);
    }

    EXPECT_EQ(act(uci_set_string, "kind", "zt.b"), 0);
    EXPECT_EQ(act(ng_uci_del_list, "q", "zt.a.items"), 0);
    EXPECT_EQ(ng_uci_commit("zt", &changed), 0);
    EXPECT_TRUE(changed);
    EXPECT_EQ(shell("uci get zt.a.items; uci get zt.b"), "p r\nkind\n");
}

TEST_F(Change, RevertDropsWhatWasSavedAndWhatWasNot)
{
    EXPECT_EQ(act(uci_set_string, "saved", "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_flush(), 0);
    EXPECT_EQ(act(ng_uci_add_list, "new", "zt.a.items"), 0);
    EXPECT_EQ(ng_uci_revert("zt"), 0);
    EXPECT_EQ(act(ng_uci_add_list, "new", "zt.a.items"), 0);
    EXPECT_EQ(ng_uci_flush(), 0);
    EXPECT_EQ(delta(), "|zt.a.items='new'\n");
    EXPECT_EQ(ng_uci_revert("missing"), -1);
}
