// nl80211 queries and the event listener against a kernel that answers what it likes.
#include <cstring>
#include <linux/nl80211.h>
#include <netlink/errno.h>

#include "netlink/netlink_fixture.h"
#include "netlink/nl80211.h"

constexpr uint16_t FAMILY = scripted_kernel::FAMILY;

static bytes iface(uint32_t index, uint16_t flags = NLM_F_MULTI)
{
    return generic_message(FAMILY, NL80211_CMD_NEW_INTERFACE,
                           join({attr_u32(NL80211_ATTR_IFINDEX, index),
                                 attr_text(NL80211_ATTR_IFNAME, "wlan" + std::to_string(index))}),
                           flags);
}

class Nl80211Query : public netlink_fixture {
protected:
    /// The result of an interface query that is answered by `datagrams`.
    int query(const std::vector<bytes> &datagrams)
    {
        kernel.answers.clear();
        kernel.answer(datagrams);
        return ng_nl80211_iface_list(&list);
    }
    std::string last_request()
    {
        if (kernel.requests.empty())
            return "nothing was asked";
        bytes request = kernel.requests.back();
        std::fill(request.begin() + 8, request.begin() + 16, 0);
        return to_hex(request);
    }

    std::vector<ng_nl80211_iface> list;
};

TEST_F(Nl80211Query, RequestsByteByByte)
{
    std::vector<ng_nl80211_station> stations;
    std::vector<ng_nl80211_survey> surveys;
    std::vector<ng_nl80211_radio> radios;
    const auto expect_request = [this](int result, const char *expected) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(last_request(), to_hex(generic_hex(expected)));
    };
    kernel.answer(std::vector<bytes>(4, done_message(0)));
    expect_request(ng_nl80211_iface_list(&list), "14000000 2100 0503 00000000 00000000 05000000");
    expect_request(ng_nl80211_station_list(7, &stations),
                   "1c000000 2100 0503 00000000 00000000 11000000 0800 0300 07000000");
    expect_request(ng_nl80211_survey_list(7, &surveys),
                   "1c000000 2100 0503 00000000 00000000 32000000 0800 0300 07000000");
    expect_request(ng_nl80211_radio_list(&radios),
                   "18000000 2100 0503 00000000 00000000 01000000 0400 ae00"); // in pieces
}

TEST_F(Nl80211Query, AListIsWholeOrLeftAlone)
{
    EXPECT_EQ(query({join({iface(1), iface(2)}), iface(3), done_message(0)}), 0);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[2].name, "wlan3");

    bytes foreign = iface(9);
    foreign[8] = 99;
    const std::string notice = "NOTICE nl80211: command 5 on interface 0 answered: ",
                      error = "ERROR nl80211: command 5 failed: ";
    const struct {
        const char *what;
        std::vector<bytes> answers;
        int result;
        std::string logged;
    } cases[] = {
        {"the interface vanished", {error_message(-ENODEV)}, -ENODEV, notice + "No such device"},
        {"vanished, hidden in the end of the dump",
         {iface(9), done_message(-ENODEV)},
         -ENODEV,
         ""}, // said already
        {"busy", {error_message(-EBUSY)}, -EBUSY, notice + "Device or resource busy"},
        {"forbidden", {error_message(-EPERM)}, -EPERM, notice + "Operation not permitted"},
        {"for once not", {iface(1), iface(2), iface(3), done_message(0)}, 0, ""},
        {"forbidden again", {error_message(-EPERM)}, -EPERM, notice + "Operation not permitted"},
        {"the socket fails in the middle", {iface(9)}, -EIO, error + "Unspecific failure"},
        {"somebody else's answer",
         {foreign, done_message(0)},
         -EIO,
         error + "Message sequence number mismatch"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(query(c.answers), c.result) << c.what;
        EXPECT_EQ(log.take(), c.logged.empty() ? lines{} : lines{c.logged}) << c.what;
    }
    kernel.answers = {{.datagram = iface(9)}, {.datagram = {}, .error = ENOBUFS}};
    EXPECT_EQ(ng_nl80211_iface_list(&list), -EIO);
    EXPECT_EQ(log.take(), lines{error + "Out of memory"});
    kernel.families_known = false; // a kernel without nl80211: told once
    for (int times = 0; times < 2; times++)
        EXPECT_EQ(query({}), -ENOENT);
    EXPECT_EQ(log.take(), lines{error + "Object not found"});
    EXPECT_EQ(list.size(), 3u);
}

TEST_F(Nl80211Query, AnInterruptedDumpIsMadeAgain)
{
    const bytes torn = iface(9, NLM_F_MULTI | NLM_F_DUMP_INTR);
    const bytes torn_end = done_message(0, NLM_F_MULTI | NLM_F_DUMP_INTR);
    // Each query opens a socket and looks the family up anew: the look-up comes before the rest.
    EXPECT_EQ(query({torn, done_message(0), iface(1), torn_end, iface(2), done_message(0)}), 0);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].ifindex, 2u);
    EXPECT_EQ(kernel.requests.size(), 3u);
    EXPECT_EQ(query({torn, done_message(0), torn_end, torn_end, iface(1), done_message(0)}),
              -EINTR);
    EXPECT_EQ(list[0].ifindex, 2u);
    EXPECT_EQ(log.take(), lines{"WARNING nl80211: command 5 gave no consistent answer"});
}

class Nl80211Listener : public netlink_fixture {
protected:
    void SetUp() override
    {
        netlink_fixture::SetUp();
        kernel.empty_error = EAGAIN;
        ASSERT_EQ(ng_nl80211_listen_event(&listener, "mlme", note, this), 0);
    }
    void TearDown() override
    {
        ng_nl80211_listen_close(&listener);
        netlink_fixture::TearDown();
    }
    static void note(const ng_nl80211_event *event, void *arg)
    {
        static_cast<Nl80211Listener *>(arg)->events.push_back(*event);
    }
    static bytes event(uint8_t command)
    {
        return generic_message(FAMILY, command, attr_u32(NL80211_ATTR_WIPHY_FREQ, 5260), 0);
    }

    ng_nl80211_listener listener = {};
    std::vector<ng_nl80211_event> events;
};

TEST_F(Nl80211Listener, EverythingPendingIsDeliveredAndNothingWaitedFor)
{
    EXPECT_EQ(ng_nl80211_receive_events(&listener), 0);
    kernel.answer(
        {event(94), join({event(88), event(110)}), message(FAMILY, 0, bytes(2)), event(200)});
    EXPECT_EQ(ng_nl80211_receive_events(&listener), 0);
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[2].command, NG_NL80211_CH_SWITCH_STARTED_NOTIFY);
    EXPECT_EQ(events[3].command, 200);
    EXPECT_EQ(log.take(), lines{"WARNING nl80211: event without a header ignored"});
    // Events bear foreign numbers.
    bytes numbered = event(94);
    numbered[8] = 5;
    kernel.answer({numbered});
    EXPECT_EQ(ng_nl80211_receive_events(&listener), 0);
    EXPECT_EQ(events.size(), 5u);
}

TEST_F(Nl80211Listener, AFloodIsReadInPortions)
{
    kernel.answer(std::vector<bytes>(1000, event(60)));
    EXPECT_EQ(ng_nl80211_receive_events(&listener), 0);
    EXPECT_GT(events.size(), 0u);
    EXPECT_LT(events.size(), 200u);
    for (int round = 0; round < 100 && !kernel.answers.empty(); round++)
        EXPECT_EQ(ng_nl80211_receive_events(&listener), 0);
    EXPECT_EQ(events.size(), 1000u);
}

TEST_F(Nl80211Listener, LostEventsAreAnErrorAndListeningAnewHelps)
{
    kernel.answers.push_back({.datagram = event(94)});
    kernel.answers.push_back({.datagram = {}, .error = ENOBUFS});
    kernel.answer({event(88)});
    const int calls = kernel.receives;
    const int result = ng_nl80211_receive_events(&listener);
    EXPECT_LT(result, 0);
    EXPECT_STREQ(ng_nl80211_strerror(result), "Out of memory");
    EXPECT_LE(kernel.receives, calls + 3); // not tried again
    EXPECT_EQ(events.size(), 1u);

    const long before = open_descriptors();
    ng_nl80211_listen_close(&listener);
    EXPECT_EQ(ng_nl80211_listen_fd(&listener), -1);
    kernel.answers.clear();
    ASSERT_EQ(ng_nl80211_listen_event(&listener, "mlme", note, this), 0);
    EXPECT_GE(ng_nl80211_listen_fd(&listener), 0);
    EXPECT_EQ(open_descriptors(), before);
    kernel.answer({event(88)});
    EXPECT_EQ(ng_nl80211_receive_events(&listener), 0);
    EXPECT_EQ(events.size(), 2u);
}

TEST_F(Nl80211Listener, AListenerThatCannotBeHadLeavesNothingOpen)
{
    const long before = open_descriptors();
    ng_nl80211_listener other = {};
    EXPECT_LT(ng_nl80211_listen_event(&other, "no such group", note, this), 0);
    kernel.families_known = false;
    const int result = ng_nl80211_listen_event(&other, "mlme", note, this);
    EXPECT_STREQ(ng_nl80211_strerror(result), "Object not found");
    EXPECT_EQ(other.socket, nullptr);
    EXPECT_EQ(other.callbacks, nullptr);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(
        log.take(),
        (lines{"ERROR nl80211: unable to listen to the group 'no such group': Object not found",
               "ERROR nl80211: unable to listen to the group 'mlme': Object not found"}));
}
