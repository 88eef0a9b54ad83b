// The client library against the real broker: what runs when, and what becomes of calls whose other
// side is late, silent, large or dead. The other side is a raw client.
#include <gtest/gtest.h>
#include <thread>

#include "../../host/libubus/wire.h"
#include "bus_testing.h"

namespace {

std::vector<std::string> story; // what happened, in order

int method_cb(ubus_context *, ubus_object *, ubus_request_data *, const char *method, blob_attr *)
{
    story.push_back(method);
    return 0;
}

void event_cb(ubus_context *, ubus_event_handler *, const char *type, blob_attr *)
{
    story.push_back(type);
}

const ubus_method METHODS[] = {
    UBUS_METHOD_NOARG("one", method_cb),
    UBUS_METHOD_NOARG("two", method_cb),
};

frame data_for(const frame &call, uint32_t value)
{
    return make_frame(UBUS_MSG_DATA, frame_seq(call), frame_peer(call), [&](blob_buf *b) {
        blob_put_int32(b, UBUS_ATTR_OBJID, frame_number(call, UBUS_ATTR_OBJID));
        void *data = blob_nest_start(b, UBUS_ATTR_DATA);
        blobmsg_add_u32(b, "value", value);
        blob_nest_end(b, data);
    });
}

void story_value_cb(ubus_request *, int, blob_attr *msg)
{
    static const blobmsg_policy policy = {"value", BLOBMSG_TYPE_INT32};
    blob_attr *tb;
    (void)blobmsg_parse(&policy, 1, &tb, blob_data(msg), (unsigned)blob_len(msg));
    story.push_back("value " + std::to_string(tb ? blobmsg_get_u32(tb) : 0));
}

void story_complete_cb(ubus_request *, int ret)
{
    story.push_back("complete " + std::to_string(ret));
}

struct Client : ::testing::Test {
    bus_broker broker;
    raw_client peer{broker.socket};
    uint32_t peer_object = publish(peer, "peer");
    ubus_context *ctx = ubus_connect(broker.socket.c_str());
    ubus_object_type type = UBUS_OBJECT_TYPE("own", METHODS);
    ubus_object own{};
    std::thread thread;

    Client()
    {
        story.clear();
        own.name = "own";
        own.type = &type;
        own.methods = METHODS;
        own.n_methods = ARRAY_SIZE(METHODS);
    }
    ~Client() override
    {
        if (thread.joinable())
            thread.join();
        ubus_free(ctx);
    }

    // Lets the peer act while the library waits.
    void meanwhile(const std::function<void()> &act)
    {
        if (thread.joinable())
            thread.join();
        thread = std::thread(act);
    }

    // The peer ends the next call that reaches it.
    void answer_next(int status)
    {
        meanwhile([this, status] { EXPECT_TRUE(peer.send(reply_to(peer.receive(), status))); });
    }

    int call_peer(int timeout = PATIENCE_MS, ubus_data_handler_t cb = nullptr)
    {
        return ubus_invoke(ctx, peer_object, "get", nullptr, cb, nullptr, timeout);
    }

    void start_call(ubus_request *req)
    {
        ASSERT_EQ(ubus_invoke_async(ctx, peer_object, "get", nullptr, req), 0);
        req->data_cb = story_value_cb;
        req->complete_cb = story_complete_cb;
        ubus_complete_request_async(ctx, req);
    }
};

} // namespace

TEST_F(Client, AnyStatusComesBackAsTheOwnerGaveIt)
{
    for (const int status : {0, 3, 250, -1}) {
        answer_next(status);
        EXPECT_EQ(call_peer(), status);
    }
    EXPECT_STREQ(ubus_strerror(UBUS_STATUS_TIMEOUT), "Request timed out");
    EXPECT_STREQ(ubus_strerror(-1), "Unknown error: -1");
}

// While a synchronous call waits, calls and events for this program are held back; another
// request's data and end are not. Afterwards they run in the order in which they came.
TEST_F(Client, SynchronousCallHoldsBackHandlersButNotReplies)
{
    for (const bool in_loop : {false, true}) {
        story.clear();
        ubus_event_handler events{};
        events.cb = event_cb;
        ASSERT_EQ(ubus_add_object(ctx, &own), 0);
        ASSERT_EQ(ubus_register_event_handler(ctx, &events, "event"), 0);
        if (in_loop)
            ubus_add_uloop(ctx);
        ubus_request other;
        start_call(&other);
        meanwhile([this] {
            const frame first = peer.receive(), second = peer.receive();
            raw_client sender(broker.socket);
            ASSERT_TRUE(sender.send(invoke_frame(1, own.id, "one")));
            EXPECT_EQ(sender.status_of(event_frame("event")), 0);
            ASSERT_TRUE(sender.send(invoke_frame(3, own.id, "two")));
            EXPECT_EQ(sender.status_of(invoke_frame(4, 5000, "none")), UBUS_STATUS_NOT_FOUND);
            ASSERT_TRUE(peer.send(data_for(first, 7) + reply_to(first, 5) + reply_to(second, 0)));
            // The calls are answered after the wait.
            EXPECT_EQ(frame_status(sender.receive()), 0);
            EXPECT_EQ(frame_status(sender.receive()), 0);
        });
        EXPECT_EQ(call_peer(), 0);
        const std::vector<std::string> replies = {"value 7", "complete 5"};
        const std::vector<std::string> all = {"value 7", "complete 5", "one", "event", "two"};
        if (in_loop) {
            EXPECT_EQ(story, replies);
            EXPECT_TRUE(run_loop([&] { return story.size() >= all.size(); }));
        }
        EXPECT_EQ(story, all);
        thread.join();
        EXPECT_EQ(ubus_unregister_event_handler(ctx, &events), 0);
        EXPECT_EQ(ubus_remove_object(ctx, &own), 0);
    }
}

TEST_F(Client, DataThatComesDuringADataCallbackFollowsInReverse)
{
    static Client *self;
    self = this;
    meanwhile([this] {
        const frame outer = peer.receive();
        ASSERT_TRUE(peer.send(data_for(outer, 1)));
        const frame inner = peer.receive();
        ASSERT_TRUE(peer.send(data_for(outer, 2) + data_for(outer, 3) + reply_to(outer, 0) +
                              reply_to(inner, 0)));
    });
    EXPECT_EQ(call_peer(PATIENCE_MS,
                        [](ubus_request *req, int kind, blob_attr *msg) {
                            story_value_cb(req, kind, msg);
                            if (story.size() > 1)
                                return;
                            const wire_blob before(blob_memdup(msg));
                            EXPECT_EQ(self->call_peer(), 0);
                            EXPECT_NE(memcmp(msg, before.get(), blob_raw_len(before.get())), 0)
                                << "its own message is gone then, as on a router";
                        }),
              0);
    EXPECT_EQ(story, (std::vector<std::string>{"value 1", "value 3", "value 2"}));
}

TEST_F(Client, LateAndAbortedRepliesAreIgnored)
{
    EXPECT_EQ(call_peer(30), UBUS_STATUS_TIMEOUT);
    ubus_request aborted;
    start_call(&aborted);
    const frame timed_out = peer.receive(), dropped = peer.receive();
    ubus_abort_request(ctx, &aborted);
    ubus_abort_request(ctx, &aborted);
    ASSERT_TRUE(peer.send(data_for(timed_out, 1) + reply_to(timed_out, 0) + data_for(dropped, 2) +
                          reply_to(dropped, 0)));
    answer_next(0);
    EXPECT_EQ(call_peer(), 0);
    EXPECT_TRUE(story.empty());
}

TEST_F(Client, SizeLimits)
{
    wire_buf large, too_large;
    const std::string text(1000000, 'x');
    blobmsg_add_string(&large.b, "text", text.c_str());
    meanwhile([this, &text] {
        const frame call = peer.receive();
        EXPECT_GT(call.size(), text.size());
        ASSERT_TRUE(peer.send(reply_to(call, 0)));
    });
    EXPECT_EQ(ubus_invoke(ctx, peer_object, "get", large.msg(), nullptr, nullptr, PATIENCE_MS), 0);
    blobmsg_add_string(&too_large.b, "text", std::string(WIRE_MAX_BLOB, 'x').c_str());
    EXPECT_EQ(ubus_invoke(ctx, peer_object, "get", too_large.msg(), nullptr, nullptr, 0),
              UBUS_STATUS_INVALID_ARGUMENT);

    // User and group make this one too long on its way: its receiver passes over it.
    ASSERT_EQ(ubus_add_object(ctx, &own), 0);
    const frame bloated = invoke_frame(1, own.id, "one", [](blob_buf *b) {
        blobmsg_add_string(b, "text", std::string(WIRE_MAX_BLOB - 52, 'x').c_str());
    });
    ASSERT_TRUE(peer.send(bloated));
    ASSERT_TRUE(peer.send(invoke_frame(2, own.id, "two")));
    EXPECT_TRUE(pump(ctx, [] { return !story.empty(); }));
    EXPECT_EQ(story.front(), "two");
}

TEST_F(Client, NotificationsCountAnswersAndForgetNobody)
{
    ASSERT_EQ(ubus_add_object(ctx, &own), 0);
    static std::vector<std::string> statuses;
    statuses.clear();
    const auto status_cb = [](ubus_notify_request *req, int idx, int ret) {
        statuses.push_back(std::to_string(idx) + "=" + std::to_string(ret) +
                           (req->id[idx] ? "" : " without id"));
    };
    ubus_notify_request none;
    ASSERT_EQ(ubus_notify_async(ctx, &own, "n", nullptr, &none), 0);
    none.complete_cb = status_cb;
    ubus_complete_request_async(ctx, &none.req);
    EXPECT_TRUE(pump(ctx, [] { return !statuses.empty(); })) << "nobody listens: complete at once";

    // Two subscriptions of one object, one of another; each answer counts once.
    const uint32_t second = publish(peer, nullptr);
    for (const uint32_t subscriber : {peer_object, peer_object, second})
        EXPECT_EQ(peer.status_of(objects_frame(UBUS_MSG_SUBSCRIBE, subscriber, own.id)), 0);
    statuses.clear();
    ubus_notify_request req;
    ASSERT_EQ(ubus_notify_async(ctx, &own, "n", nullptr, &req), 0);
    req.status_cb = status_cb;
    req.complete_cb = [](ubus_notify_request *, int, int) { story.push_back("all"); };
    ubus_complete_request_async(ctx, &req.req);
    for (const int status : {0, 3, 0})
        ASSERT_TRUE(peer.send(reply_to(peer.receive(), status)));
    EXPECT_TRUE(pump(ctx, [] { return !story.empty(); }));
    EXPECT_EQ(statuses, (std::vector<std::string>{"1=0", "2=3", "3=0"}));
    EXPECT_EQ(req.id[1], second) << "who subscribed last is told first";

    // A subscriber that does not answer costs the time limit; errors of others cost nothing.
    EXPECT_EQ(ubus_notify(ctx, &own, "n", nullptr, 30), UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(ubus_notify(ctx, &own, "n", nullptr, -1), 0);
}
