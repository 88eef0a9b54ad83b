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
        EXPECT_EQ(ng_uci_get_int(&number, "%s", name), -1) << name;
    EXPECT_EQ(number, 7);
    EXPECT_EQ(ng_uci_get_int(&number, "zt.%c.%s", 'a', "number"), 0);
    EXPECT_EQ(number, -42);

    std::string text = "kept";
    EXPECT_EQ(ng_uci_get_string(text, "zt.a.l"), -1);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(ng_uci_get_string(text, "zt.@part[0].text"), 0);
    EXPECT_EQ(text, "12x");

    const auto collect = [](const char *value, void *priv) {
        *static_cast<std::string *>(priv) += std::string(value) + "|";
        // Taking the list apart while it is read.
        ng_uci_save_action_ctx(ng_uci_change_context(), ng_uci_delete_option, nullptr, "zt.a.l");
    };
    std::string items;
    EXPECT_EQ(_ng_uci_get_val_cb("zt.a.l", collect, &items), 0);
    EXPECT_EQ(items, "1|b c|");
    EXPECT_GT(0, _ng_uci_get_val_cb("zt.a.l", collect, &items));
    EXPECT_EQ(items, "1|b c|");

    EXPECT_TRUE(ng_uci_exists("zt.a"));
    EXPECT_TRUE(ng_uci_exists("zt.%s.number", "a"));
    EXPECT_FALSE(ng_uci_exists("zt.a.l"));
    EXPECT_FALSE(ng_uci_exists("zt.none"));
    EXPECT_EQ(logged("ERROR"), 0) << "looking is no error";
}

TEST_F(Read, StateLiesOverTheConfiguration)
{
    std::string text;
    EXPECT_EQ(ng_uci_get_state("/var/state", "none.a.up", text), NG_UCI_STATE_LOOKUP_FAILED);
    EXPECT_EQ(ng_uci_get_state("/var/state", "zt.a.up", text), NG_UCI_STATE_INCOMPLETE);
    EXPECT_EQ(ng_uci_get_state("/var/state", "zt.a", text), NG_UCI_STATE_INCOMPLETE);
    shell("uci -P /var/state set zt.a.up=1; uci -P /var/state set zt.a.one=state");
    EXPECT_EQ(ng_uci_get_state("/var/state", "zt.a.up", text), NG_UCI_STATE_FOUND);
    EXPECT_EQ(text, "1");
    EXPECT_EQ(ng_uci_get_string(text, "zt.a.one"), 0);
    EXPECT_EQ(text, "1") << "state stays out of the configuration";
    EXPECT_EQ(ng_uci_delete_state("/var/state", "zt.a.up"), 0);
    EXPECT_EQ(ng_uci_delete_state("/var/state", "zt.a.up"), 0);
    EXPECT_EQ(ng_uci_get_state("/var/state", "zt.a.up", text), NG_UCI_STATE_INCOMPLETE);
    EXPECT_EQ(read_file("/var/state/zt"), "zt.a.one='state'\n");

    const int writer = open("/var/state/zt", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(writer, LOCK_SH), 0); // does not keep readers out
    EXPECT_EQ(ng_uci_delete_state("/var/state", "zt.a.one"), 0);
    EXPECT_EQ(ng_uci_get_state("/var/state", "zt.a.one", text), NG_UCI_STATE_FOUND);
    ASSERT_EQ(flock(writer, LOCK_EX), 0);
    EXPECT_EQ(ng_uci_get_state("/var/state", "zt.a.one", text), NG_UCI_STATE_LOOKUP_FAILED);
    EXPECT_EQ(logged("/var/state/zt is locked by another process"), 2);
    close(writer);
    EXPECT_EQ(ng_uci_delete_state("/var/state", "zt.a.one"), 0);
    EXPECT_EQ(read_file("/var/state/zt"), "");
}

TEST_F(Read, PackageThatCannotBeReadIsNotAMissingOne)
{
    int number = 0;
    const auto check = [&](const char *package) {
        (void)ng_uci_renew_change_context(); // as in a callback of its own
        return ng_uci_check_readable(package);
    };
    EXPECT_EQ(check("none"), NG_UCI_ABSENT);
    EXPECT_EQ(logged("ERROR"), 0);
    EXPECT_EQ(check("zt"), NG_UCI_READABLE);
    const int rival = open(CONFIG, O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(rival, LOCK_EX), 0);
    EXPECT_EQ(ng_uci_check_readable("zt"), NG_UCI_READABLE) << "it has been read in this callback";
    EXPECT_EQ(ng_uci_get_int(&number, "zt.a.one"), 0);
    EXPECT_EQ(check("zt"), NG_UCI_UNREADABLE);
    EXPECT_EQ(logged("is locked by another process"), 1);
    debug_set_level(ZU_LOG_NOTICE);
    {
        const zu_log_repetition quiet;
        EXPECT_EQ(check("zt"), NG_UCI_UNREADABLE);
    }
    EXPECT_EQ(logged("is locked by another process"), 1);
    close(rival);
    write_file(CONFIG, "config part 'a'\n\toption one '1\n");
    EXPECT_EQ(check("zt"), NG_UCI_UNREADABLE);
    EXPECT_EQ(logged("Failed to load zt: "), 1);
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
    EXPECT_NE(get_tarn_host_list_uci("zt", "targets", &head), 0);
    EXPECT_NE(get_tarn_host_list_uci("zt", "one", &head), 0);
    (void)ng_uci_renew_change_context(); // the entries own their text
    EXPECT_EQ(urls(&head), "http://h1/ http://h2/ url ");
    EXPECT_EQ(get_tarn_host_list_uci("zt", "none", &head), 0);
    EXPECT_EQ(get_tarn_host_list_uci("none", "targets", &head), 0);
    destroy_tarn_host_list(&head);
    EXPECT_TRUE(list_empty(&head));
    EXPECT_EQ(logged("WARNING"), 0);

    EXPECT_NE(get_tarn_host_list_uci("zt", "many", &head), 0);
    tarn_host *last = list_last_entry(&head, tarn_host, list);
    EXPECT_STREQ(last->url, "u31");
    EXPECT_EQ(logged("WARNING"), 2);
    EXPECT_EQ(logged("u32"), 1);
    EXPECT_EQ(logged("u33"), 1);
    destroy_tarn_host_list(&head);
}
