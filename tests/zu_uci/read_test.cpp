// Reading: options, run-time state, host lists.
#include <fcntl.h>
#include <sys/file.h>

#include "platform/zu/host_list.h"
#include "uci_fixture.h"

using Read = uci_fixture;

TEST_F(Read, OptionsByTypeAndUntouchedOnFailure)
{
    write_file(CONFIG, "config part 'a'\n\toption number '-42'\n\toption text '12x'\n"
                       "\toption space ' 12'\n\toption big '99999999999'\n\tlist l '1'\n"
                       "\tlist l 'b c'\n");
    (void)ng_uci_renew_change_context();
    int number = 7;
    for (const char *name : {"zt.a.text", "zt.a.space", "zt.a.big", "zt.a.l", "zt.a.none", "zt.a",
                             "zt.none.number", "none.a.number", "zt.a.number.x", ""})
        EXPECT_EQ(-1, ng_uci_get_int(&number, "%s", name)) << name;
    EXPECT_EQ(7, number);
    EXPECT_EQ(0, ng_uci_get_int(&number, "zt.%c.%s", 'a', "number"));
    EXPECT_EQ(-42, number);

    std::string text = "kept";
    EXPECT_EQ(-1, ng_uci_get_string(text, "zt.a.l"));
    EXPECT_EQ("kept", text);
    EXPECT_EQ(0, ng_uci_get_string(text, "zt.@part[0].text"));
    EXPECT_EQ("12x", text);

    const auto collect = [](const char *value, void *priv) {
        *static_cast<std::string *>(priv) += std::string(value) + "|";
        // Taking the list apart while it is read.
        ng_uci_save_action_ctx(ng_uci_change_context(), ng_uci_delete_option, nullptr, "zt.a.l");
    };
    std::string items;
    EXPECT_EQ(0, _ng_uci_get_val_cb("zt.a.l", collect, &items));
    EXPECT_EQ("1|b c|", items);
    EXPECT_GT(0, _ng_uci_get_val_cb("zt.a.l", collect, &items));
    EXPECT_EQ("1|b c|", items);

    EXPECT_TRUE(ng_uci_exists("zt.a"));
    EXPECT_TRUE(ng_uci_exists("zt.%s.number", "a"));
    EXPECT_FALSE(ng_uci_exists("zt.a.l"));
    EXPECT_FALSE(ng_uci_exists("zt.none"));
    EXPECT_EQ(0, logged("ERROR")) << "looking is no error";
}

TEST_F(Read, StateLiesOverTheConfiguration)
{
    std::string text;
    EXPECT_EQ(NG_UCI_STATE_LOOKUP_FAILED, ng_uci_get_state("/var/state", "none.a.up", text));
    EXPECT_EQ(NG_UCI_STATE_INCOMPLETE, ng_uci_get_state("/var/state", "zt.a.up", text));
    EXPECT_EQ(NG_UCI_STATE_INCOMPLETE, ng_uci_get_state("/var/state", "zt.a", text));
    shell("uci -P /var/state set zt.a.up=1; uci -P /var/state set zt.a.one=state");
    EXPECT_EQ(NG_UCI_STATE_FOUND, ng_uci_get_state("/var/state", "zt.a.up", text));
    EXPECT_EQ("1", text);
    EXPECT_EQ(0, ng_uci_get_string(text, "zt.a.one"));
    EXPECT_EQ("1", text) << "state stays out of the configuration";
    EXPECT_EQ(0, ng_uci_delete_state("/var/state", "zt.a.up"));
    EXPECT_EQ(0, ng_uci_delete_state("/var/state", "zt.a.up"));
    EXPECT_EQ(NG_UCI_STATE_INCOMPLETE, ng_uci_get_state("/var/state", "zt.a.up", text));
    EXPECT_EQ("zt.a.one='state'\n", read_file("/var/state/zt"));

    const int writer = open("/var/state/zt", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(writer, LOCK_SH)); // does not keep readers out
    EXPECT_EQ(0, ng_uci_delete_state("/var/state", "zt.a.one"));
    EXPECT_EQ(NG_UCI_STATE_FOUND, ng_uci_get_state("/var/state", "zt.a.one", text));
    ASSERT_EQ(0, flock(writer, LOCK_EX));
    EXPECT_EQ(NG_UCI_STATE_LOOKUP_FAILED, ng_uci_get_state("/var/state", "zt.a.one", text));
    EXPECT_EQ(2, logged("/var/state/zt is locked by another process"));
    close(writer);
    EXPECT_EQ(0, ng_uci_delete_state("/var/state", "zt.a.one"));
    EXPECT_EQ("", read_file("/var/state/zt"));
}

TEST_F(Read, PackageThatCannotBeReadIsNotAMissingOne)
{
    int number = 0;
    const auto check = [&](const char *package) {
        (void)ng_uci_renew_change_context(); // as in a callback of its own
        return ng_uci_check_readable(package);
    };
    EXPECT_EQ(NG_UCI_ABSENT, check("none"));
    EXPECT_EQ(0, logged("ERROR"));
    EXPECT_EQ(NG_UCI_READABLE, check("zt"));
    const int rival = open(CONFIG, O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(rival, LOCK_EX));
    EXPECT_EQ(NG_UCI_READABLE, ng_uci_check_readable("zt")) << "it has been read in this callback";
    EXPECT_EQ(0, ng_uci_get_int(&number, "zt.a.one"));
    EXPECT_EQ(NG_UCI_UNREADABLE, check("zt"));
    EXPECT_EQ(1, logged("is locked by another process"));
    debug_set_level(ZU_LOG_NOTICE);
    {
        const zu_log_repetition quiet;
        EXPECT_EQ(NG_UCI_UNREADABLE, check("zt"));
    }
    EXPECT_EQ(1, logged("is locked by another process"));
    close(rival);
    write_file(CONFIG, "config part 'a'\n\toption one '1\n");
    EXPECT_EQ(NG_UCI_UNREADABLE, check("zt"));
    EXPECT_EQ(1, logged("Failed to load zt: "));
}

namespace {

/// The URLs of a list with a blank after each.
std::string urls(list_head *head)
{
    std::string all;
    tarn_host *host;
    list_for_each_entry(host, head, list) all += std::string(host->url) + " ";
    return all;
}

} // namespace

TEST_F(Read, HostListFromAnySectionUpToItsLimit)
{
    std::string file = "config x\n\toption other '1'\n\nconfig y 'named'\n\toption one 'url'\n"
                       "\tlist targets 'http://h1/'\n\tlist targets 'http://h2/'\n"
                       "\nconfig z\n\tlist many 'u0'\n";
    for (int i = 1; i < HOST_LIST_MAX + 2; i++)
        file += "\tlist many 'u" + std::to_string(i) + "'\n";
    write_file(CONFIG, file);
    (void)ng_uci_renew_change_context();

    list_head head;
    INIT_LIST_HEAD(&head);
    EXPECT_NE(0, get_tarn_host_list_uci("zt", "targets", &head));
    EXPECT_NE(0, get_tarn_host_list_uci("zt", "one", &head));
    (void)ng_uci_renew_change_context(); // the entries own their text
    EXPECT_EQ("http://h1/ http://h2/ url ", urls(&head));
    EXPECT_EQ(0, get_tarn_host_list_uci("zt", "none", &head));
    EXPECT_EQ(0, get_tarn_host_list_uci("none", "targets", &head));
    destroy_tarn_host_list(&head);
    EXPECT_TRUE(list_empty(&head));
    EXPECT_EQ(0, logged("WARNING"));

    EXPECT_NE(0, get_tarn_host_list_uci("zt", "many", &head));
    tarn_host *last = list_last_entry(&head, tarn_host, list);
    EXPECT_STREQ("u31", last->url);
    EXPECT_EQ(2, logged("WARNING"));
    EXPECT_EQ(1, logged("u32"));
    EXPECT_EQ(1, logged("u33"));
    destroy_tarn_host_list(&head);
}
