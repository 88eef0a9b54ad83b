// The tool as scripts use it: exit codes, what it prints and where, when it ends.
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

#include "bus_testing.h"

namespace {

struct result {
    int code;
    std::string output, errors;
};

struct Tool : ::testing::Test {
    bus_broker broker;
    raw_client peer{broker.socket};

    void start(child *tool, std::vector<std::string> args)
    {
        args.insert(args.begin(), {UBUS_PROGRAM, "-s", broker.socket});
        tool->start(args, true, broker.folder / "errors");
    }

    result run(const std::vector<std::string> &args)
    {
        child tool;
        start(&tool, args);
        const std::string output = tool.read_all();
        return {tool.wait(), output, read_file(broker.folder / "errors")};
    }

    // Runs a call whose object, owned by the peer, answers with this status.
    result call_answered(int status, const std::vector<std::string> &args)
    {
        std::thread owner([&] { EXPECT_TRUE(peer.send(reply_to(peer.receive(), status))); });
        const result r = run(args);
        owner.join();
        return r;
    }
};

} // namespace

TEST_F(Tool, ExitCodes)
{
    publish(peer, "here");
    const std::string usage = "Usage: ";
    const struct {
        std::vector<std::string> args;
        int code;
        std::string errors; // how they begin
    } CASES[] = {
        {{"list"}, 0, ""},
        {{"-S", "list", "none"}, 4, ""},
        {{"list", "a", "b"}, 254, usage},
        {{"call", "here"}, 254, usage},
        {{"call", "a", "b", "{}", "c"}, 254, usage},
        {{"call", "here", "get", "{"},
         244,
         "Command failed: ubus call here get { (Parsing message data failed)\n"},
        {{"-S", "call", "here", "get", "{"}, 12, ""},
        {{"-t", "1", "call", "here", "get"},
         249,
         "Command failed: ubus call here get (Request timed out)\n"},
        {{"send", "e", "[]"}, 12, "Command failed: Parsing message data failed\n"},
        {{"send"}, 254, usage},
        {{"listen", ""}, 255, "Error while registering for event '': Permission denied\n"},
        {{"subscribe"}, 255, ""},
        {{"subscribe", "none"}, 255, "Error while registering for event 'none': Not found\n"},
        {{"wait_for"}, 254, usage},
        {{"wait_for", "here"}, 0, ""},
        {{"-t", "1", "wait_for", "here", "none"}, 7, "Command failed: Request timed out\n"},
        {{"-t", "1", "listen"}, 0, ""},
        {{"bogus"}, 254, usage},
        {{}, 1, usage},
        {{"-x", "list"}, 1, UBUS_PROGRAM},
    };
    for (const auto &c : CASES) {
        const result r = run(c.args);
        const std::string what = c.args.empty() ? "nothing" : c.args.back();
        EXPECT_EQ(r.code, c.code) << what;
        EXPECT_TRUE(r.errors.starts_with(c.errors)) << what << ": " << r.errors;
        EXPECT_TRUE(!c.errors.empty() || r.errors.empty()) << what << ": " << r.errors;
    }
}

// Without a terminal a failed call ends with 256 minus the status, with -S with the status.
TEST_F(Tool, ExitCodeOfAFailedCall)
{
    publish(peer, "here");
    EXPECT_EQ(call_answered(1, {"call", "here", "get"}).code, 255);
    EXPECT_EQ(call_answered(2, {"call", "here", "get"}).errors,
              "Command failed: ubus call here get (Invalid argument)\n");
    EXPECT_EQ(call_answered(-1, {"call", "here", "get"}).code, 1);
    EXPECT_EQ(call_answered(3, {"-S", "call", "here", "get"}).code, 3);
    EXPECT_EQ(call_answered(0, {"call", "here", "get"}).code, 0);
}

TEST_F(Tool, SaysWhenThereIsNoBus)
{
    broker.stop();
    const result r = run({"list"});
    EXPECT_EQ(r.code, 255);
    EXPECT_EQ(r.errors, "Failed to connect to ubus\n");
}

TEST_F(Tool, ListenPrintsAtOnceOutlivesTheBrokerAndEndsOnSignal)
{
    for (const int number : {SIGTERM, SIGINT}) {
        child tool;
        start(&tool, {"listen", "a.*"});
        EXPECT_TRUE(eventually([&] {
            (void)peer.status_of(event_frame("other"));
            (void)peer.status_of(event_frame("a.b"));
            return tool.has_output();
        }));
        EXPECT_EQ(tool.read_line(), R"({ "a.b": {"text":"t"} })");
        if (number == SIGINT) {
            broker.stop();
            broker.start();
            peer = raw_client(broker.socket);
        }
        tool.signal(number);
        EXPECT_EQ(tool.wait(), 0);
    }
}

TEST_F(Tool, SubscribePrintsNotificationsAndAnswersThem)
{
    const uint32_t id = publish(peer, "source");
    child tool;
    start(&tool, {"subscribe", "source"});
    EXPECT_EQ(frame_type(peer.receive()), UBUS_MSG_NOTIFY);
    EXPECT_EQ(peer.status_of(notify_frame(
                  id, "moved", [](blob_buf *b) { blobmsg_add_string(b, "to", "\"x\"\n"); })),
              0);
    EXPECT_EQ(tool.read_line(), R"({ "moved": {"to":"\"x\"\n"} })");
    EXPECT_EQ(frame_status(peer.receive()), 0);
}

TEST_F(Tool, MonitorShowsBothDirectionsAndFilters)
{
    child requests, all;
    start(&requests, {"-M", "r", "-m", "lookup", "monitor"});
    start(&all, {"monitor"});
    EXPECT_TRUE(eventually([&] {
        (void)peer.status_of(lookup_frame(1, "none"));
        return requests.has_output() && all.has_output();
    }));
    char asked[100], told[100];
    snprintf(asked, sizeof(asked), "<- %08x #00000000         lookup: {\"objpath\":\"none\"}",
             peer.id);
    snprintf(told, sizeof(told), "-> %08x #00000000         status: {\"status\":4}", peer.id);
    (void)peer.status_of(lookup_frame(1, "none"));
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(requests.read_line(), asked);
    EXPECT_TRUE(eventually([&] { return all.read_line() == asked; }));
    EXPECT_EQ(all.read_line(), told);
}
