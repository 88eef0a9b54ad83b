// What the kernel, or somebody who sends in its place, may answer to a route netlink request.
#include <cerrno>
#include <climits>
#include <cstring>

#include "netlink/netlink_fixture.h"
#include "netlink/rtnl.h"
#include "netlink/rtnl_internal.h"

class RtnlAnswerFrom : public netlink_fixture {
protected:
    /// Sends a request that waits for its acknowledgement.
    int acknowledge() { return exchange(nullptr); }
    int exchange(rtnl_answer *answer)
    {
        rtnl_handle rtnl;
        EXPECT_EQ(ng_rtnl_open(&rtnl, 0), 0);
        rtnl_link_request request = rtnl_link_request_make(RTM_DELLINK, NLM_F_REQUEST, 1);
        errno = 0;
        int result = ng_rtnl_send(&rtnl, &request.header, answer);
        int error = errno;
        ng_rtnl_close(&rtnl);
        errno = error;
        return result;
    }
};

static bytes link_message(uint32_t flags)
{
    bytes info(16);
    memcpy(info.data() + 8, &flags, sizeof flags);
    return message(RTM_NEWLINK, 0, info);
}

static bytes with_ids(bytes data, uint32_t seq, uint32_t port)
{
    memcpy(data.data() + 8, &seq, sizeof seq);
    memcpy(data.data() + 12, &port, sizeof port);
    return data;
}

/// The length field says `length`, whatever there is.
static bytes with_length(bytes data, uint32_t length)
{
    memcpy(data.data(), &length, sizeof length);
    return data;
}

TEST_F(RtnlAnswerFrom, WhatEndsTheWaitAndHow)
{
    const bytes ack = error_message(0), link = link_message(0);
    const bytes foreign = with_ids(ack, 99, 99);
    // A last line that is an ERROR goes with -1.
    const struct {
        const char *what;
        std::vector<scripted_answer> script;
        lines logged;
    } cases[] = {
        {"an acknowledgement", {{ack}}, {}},
        {"EPERM",
         {{error_message(-EPERM)}},
         {"ERROR RTNETLINK answers: Operation not permitted (-1)"}},
        {"others' messages first",
         {{join({with_ids(error_message(-EPERM), 0, 99), with_ids(error_message(-EPERM), 99, 0),
                 ack})}},
         {}},
        {"another process's forgery first", {{error_message(-EPERM), 0, 4711}, {ack}}, {}},
        {"messages nobody asked for",
         {{join({link, link})}, {ack}},
         {"NOTICE unexpected reply", "NOTICE unexpected reply"}},
        {"interrupted calls", {{{}, EINTR}, {{}, EAGAIN}, {ack}}, {}},
        {"ENOBUFS", {{{}, ENOBUFS}}, {"ERROR netlink received error No buffer space available"}},
        {"nothing", {{bytes()}}, {"ERROR EOF on netlink"}},
        {"an address of another length", {{ack, 0, 0, 16}}, {"ERROR sender address length == 16"}},
        {"below the header", {{with_length(ack, 15)}}, {"ERROR malformed message: len=15"}},
        {"0, which would stand still", {{with_length(ack, 0)}}, {"ERROR malformed message: len=0"}},
        {"past the end", {{with_length(ack, 37)}}, {"ERROR malformed message: len=37"}},
        {"negative to some", {{with_length(ack, 0xfffffffe)}}, {"ERROR malformed message: len=-2"}},
        {"past the end of a cut datagram",
         {{with_length(ack, 37), 0, 0, 12, true}},
         {"ERROR truncated message"}},
        {"a foreign message is measured before it is skipped",
         {{with_length(foreign, 4000)}},
         {"ERROR malformed message: len=4000"}},
        {"an error message without its record",
         {{message(NLMSG_ERROR, 0, bytes(19))}},
         {"ERROR netlink message truncated"}},
        {"a whole message in a cut datagram: go on",
         {{foreign, 0, 0, 12, true}, {ack}},
         {"NOTICE message truncated"}},
        {"leftover bytes", {{join({foreign, bytes(7)})}}, {"ERROR did not parse 7 parse bytes"}},
        {"less than a header", {{bytes(15)}}, {"ERROR did not parse 15 parse bytes"}},
        {"an unpadded last message leaves nothing over",
         {{with_ids(message(RTM_NEWLINK, 0, bytes(17)), 99, 99)}, {ack}},
         {}},
        {"the answer counts, not the rubbish after it", {{join({ack, bytes(16, 0xff)})}}, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        kernel.answers.assign(c.script.begin(), c.script.end());
        const bool failure = !c.logged.empty() && c.logged.back().starts_with("ERROR");
        EXPECT_EQ(acknowledge(), failure ? -1 : 0);
        EXPECT_EQ(log.take(), c.logged);
        EXPECT_TRUE(kernel.answers.empty());
    }
    kernel.send_error = ENOBUFS;
    EXPECT_EQ(acknowledge(), -1);
    EXPECT_EQ(log.take(), lines{"ERROR cannot talk to rtnetlink: No buffer space available"});
}

TEST_F(RtnlAnswerFrom, TheErrorIsLeftInErrno)
{
    for (int error : {EBUSY, EPERM, INT_MIN}) { // the last cannot be negated
        kernel.answer({error_message((int)(0u - (unsigned)error))});
        EXPECT_EQ(acknowledge(), -1);
        EXPECT_EQ(errno, error);
    }
    EXPECT_EQ(log.take()[0], "ERROR RTNETLINK answers: Device or resource busy (-16)");
}

TEST_F(RtnlAnswerFrom, AnAnswerIsCopiedWholeAndNoFurther)
{
    rtnl_answer answer;
    const auto untouched = [](uint8_t byte) { return byte == 0xee; };
    const bytes largest = message(RTM_NEWLINK, NLM_F_MULTI, bytes(RTNL_RECEIVE_SIZE - 16, 0xab));
    for (const bytes &reply : {link_message(65), error_message(0), largest}) {
        answer.bytes.fill(0xee);
        kernel.answer({reply});
        EXPECT_EQ(exchange(&answer), 0);
        EXPECT_TRUE(std::equal(reply.begin() + 16, reply.end(), answer.bytes.begin() + 16));
        EXPECT_TRUE(std::all_of(answer.bytes.begin() + (ptrdiff_t)reply.size(), answer.bytes.end(),
                                untouched));
    }
    // One byte more than the buffer takes.
    kernel.answer({message(RTM_NEWLINK, 0, bytes(RTNL_RECEIVE_SIZE - 15))});
    EXPECT_EQ(exchange(&answer), -1);
    EXPECT_EQ(log.take(), lines{"ERROR truncated message"});
}

TEST_F(RtnlAnswerFrom, WhatExistsAlreadyIsSuccessAndNothingElseIs)
{
    kernel.interfaces = {{"bat0", 7}, {"br-lan", 8}};
    const struct {
        int (*call)();
        bool exists_is_success;
    } calls[] = {
        {[] { return ng_rtnl_iface_create_vlan("bat0", 2); }, true},
        {[] { return ng_rtnl_iface_rule_add("lo", 0, 0, 0, 20, 500); }, true},
        {[] { return ng_rtnl_bridge_enslave("br-lan", "bat0"); }, true},
        {[] { return ng_rtnl_iface_destroy("bat0"); }, false},
        {[] { return ng_rtnl_iface_set_up("bat0", true); }, false},
    };
    for (const auto &c : calls) {
        kernel.answer({error_message(-EEXIST)});
        EXPECT_EQ(c.call(), c.exists_is_success ? 0 : -1);
        kernel.answer({error_message(-EBUSY)});
        EXPECT_EQ(c.call(), -1);
        // A failure without an answer must not be taken for an older EEXIST.
        errno = EEXIST;
        kernel.answer({{}});
        EXPECT_EQ(c.call(), -1);
    }
    log.take();
    kernel.answer({error_message(-EBUSY), error_message(-EPERM)});
    EXPECT_EQ(ng_rtnl_bridge_release("bat0"), -1);
    EXPECT_EQ(ng_rtnl_iface_set_up("bat0", false), -1);
    EXPECT_EQ(log.take(),
              (lines{"NOTICE enslaving bat0 in bridge n/a",
                     "ERROR RTNETLINK answers: Device or resource busy (-16)",
                     "ERROR failed to rtnl send: ret -1 : slave 'bat0' (7) : bridge 'n/a' (0)",
                     "NOTICE set iface bat0 down", "NOTICE bat0: ifindex = 7",
                     "ERROR RTNETLINK answers: Operation not permitted (-1)",
                     "ERROR ng_rtnl_send() returned -1 for iface 'bat0'"}));
}

TEST_F(RtnlAnswerFrom, ALinkIsUpByItsFlags)
{
    kernel.interfaces = {{"eth0", 2}};
    const struct {
        uint32_t flags;
        bool ignore_running, up;
        const char *text;
    } cases[] = {
        {0, true, false, "interface eth0 is *NOT* UP : ignore_running = TRUE"},
        {64, true, false, "interface eth0 is *NOT* UP and RUNNING : ignore_running = TRUE"},
        {1, false, false, "interface eth0 is *NOT* UP : ignore_running = FALSE"},
        {1, true, true, "interface eth0 is UP : ignore_running = TRUE"},
        {65, false, true, "interface eth0 is UP and RUNNING : ignore_running = FALSE"},
        {0x11043, true, true, "interface eth0 is UP and RUNNING : ignore_running = TRUE"},
    };
    for (const auto &c : cases) {
        kernel.answer({link_message(c.flags)});
        EXPECT_EQ(ng_rtnl_iface_link_get_up("eth0", c.ignore_running), c.up);
        EXPECT_EQ(log.take(), (lines{"DEBUG iface eth0", std::string("DEBUG ") + c.text}));
    }
    // Neither an acknowledgement nor half an answer tells flags, whatever their bytes.
    for (const bytes &reply : {error_message(0), message(RTM_NEWLINK, 0, bytes(15, 0xff)),
                               message(RTM_NEWADDR, 0, bytes(16, 0xff))}) {
        kernel.answer({reply});
        EXPECT_FALSE(ng_rtnl_iface_link_get_up("eth0", true));
    }
}

TEST_F(RtnlAnswerFrom, ALinkThatComesUpLateIsWaitedForAndOneThatNeverDoesIsGivenUp)
{
    kernel.interfaces = {{"eth0", 2}};
    auto retries = [&] {
        lines out;
        for (const std::string &line : log.take())
            if (line.find("retry") != std::string::npos)
                out.push_back(line);
        return out;
    };
    kernel.answer({link_message(1), link_message(1), link_message(65)});
    EXPECT_TRUE(ng_rtnl_iface_link_get_retry("eth0", false));
    EXPECT_EQ(kernel.slept_us, 200000u);
    EXPECT_EQ(retries(), (lines{"NOTICE eth0 is NOT up: retry 0", "NOTICE eth0 is NOT up: retry 1",
                                "INFO eth0 is up: retry 2"}));
    kernel.slept_us = 0;
    kernel.answer(std::vector<bytes>(5, link_message(1)));
    EXPECT_FALSE(ng_rtnl_iface_link_get_retry("eth0", false));
    EXPECT_EQ(kernel.slept_us, 500000u);
    EXPECT_EQ(retries().size(), 5u);
    EXPECT_TRUE(kernel.answers.empty());
}
