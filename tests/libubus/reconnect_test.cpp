// What becomes of a program when the broker dies, and when it comes back. The loop's clock is
// virtual where a second must pass.
#include <gtest/gtest.h>
#include <libubox_host/clock.h>

#include "../../host/libubus/wire.h"
#include "bus_testing.h"

namespace {

int connections; // calls of the connect callback
std::vector<std::string> story;

ubus_subscriber plain, attached;
ubus_event_handler events;

int quiet_cb(ubus_context *, ubus_object *, ubus_request_data *, const char *method, blob_attr *)
{
    story.push_back(method);
    return 0;
}

const ubus_method METHODS[] = {UBUS_METHOD_NOARG("get", quiet_cb)};
ubus_object_type type = UBUS_OBJECT_TYPE("t", METHODS);
ubus_object_type other_type = UBUS_OBJECT_TYPE("u", METHODS);
ubus_object objects[3];

void connected_cb(ubus_context *ctx)
{
    connections++;
    EXPECT_FALSE(ctx->sock.registered) << "the socket joins the loop after the callback";
    for (ubus_object &obj : objects)
        EXPECT_EQ(ubus_add_object(ctx, &obj), 0);
    EXPECT_EQ(ubus_register_event_handler(ctx, &events, "lost"), 0);
    EXPECT_EQ(ubus_register_subscriber(ctx, &attached), 0);
}

void reset_program()
{
    static const char *const NAMES[] = {"first", "second", "third"};
    connections = 0;
    story.clear();
    plain = attached = {};
    events = {};
    type.id = other_type.id = 0;
    for (int i = 0; i < 3; i++) {
        objects[i] = {};
        objects[i].name = NAMES[i];
        objects[i].type = i == 2 ? &other_type : &type;
        objects[i].methods = METHODS;
        objects[i].n_methods = 1;
    }
    events.cb = [](ubus_context *, ubus_event_handler *, const char *id, blob_attr *) {
        story.push_back(id);
    };
    attached.cb = quiet_cb;
    attached.new_obj_cb = [](ubus_context *, ubus_subscriber *, const char *path) {
        return std::string(path) == "target";
    };
}

struct Reconnect : ::testing::Test {
    bus_broker broker;
    ubus_auto_conn conn{};

    Reconnect()
    {
        reset_program();
        conn.path = broker.socket.c_str();
        conn.cb = connected_cb;
        uloop_init();
        uloop_clock_virtual(true);
        uloop_clock_settle_ms(20);
    }
    ~Reconnect() override
    {
        ubus_auto_shutdown(&conn);
        uloop_clock_virtual(false);
        uloop_done();
    }
};

// Notifies the subscribers of `object` and says how many there are.
size_t notify(const raw_client &owner, uint32_t object)
{
    const std::vector<frame> replies =
        owner.request(notify_frame(object, "notice", [](blob_buf *) {}));
    return frame_attribute(replies.back(), UBUS_ATTR_SUBSCRIBERS).size() / 8;
}

} // namespace

TEST_F(Reconnect, EverySecondUntilTheBrokerIsThereAndWhatWasPublishedIsAgain)
{
    broker.stop();
    ubus_auto_connect(&conn);
    EXPECT_EQ(uloop_clock_run_ms(3500), 0);
    EXPECT_EQ(connections, 0);
    broker.start();
    EXPECT_EQ(uloop_clock_run_ms(600), 0);
    ASSERT_EQ(connections, 1);
    EXPECT_TRUE(conn.ctx.sock.registered);

    // A loss ends what is pending, the newest first, and not the loop.
    raw_client other(broker.socket);
    const uint32_t silent = publish(other, "silent"), old_id = objects[0].id;
    ubus_request requests[2];
    for (ubus_request &req : requests) {
        ASSERT_EQ(ubus_invoke_async(&conn.ctx, silent, "get", nullptr, &req), 0);
        req.complete_cb = [](ubus_request *done, int ret) {
            story.push_back(std::to_string(done->seq) + ": " + std::to_string(ret));
        };
        ubus_complete_request_async(&conn.ctx, &req);
    }
    const int seq = requests[0].seq;
    broker.stop();
    EXPECT_EQ(uloop_clock_run_ms(2500), 0);
    EXPECT_EQ(story, (std::vector<std::string>{std::to_string(seq + 1) + ": 7",
                                               std::to_string(seq) + ": 7"}));
    EXPECT_FALSE(conn.ctx.sock.registered);
    // What is tried while there is no connection fails at once; a failed wait is one more loss.
    EXPECT_EQ(ubus_invoke(&conn.ctx, silent, "get", nullptr, nullptr, nullptr, 0),
              UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_notify(&conn.ctx, &objects[0], "n", nullptr, -1), 0);
    EXPECT_EQ(ubus_notify(&conn.ctx, &objects[0], "n", nullptr, 0), UBUS_STATUS_CONNECTION_FAILED);

    broker.start();
    other = raw_client(broker.socket);
    const uint32_t target = publish(other, "target");
    EXPECT_EQ(uloop_clock_run_ms(900), 0);
    EXPECT_EQ(objects[0].id, old_id) << "not before a second has passed";
    EXPECT_EQ(uloop_clock_run_ms(200), 0);
    EXPECT_EQ(connections, 1) << "the callback is for the first connection";
    EXPECT_EQ(frame_type(other.receive()), UBUS_MSG_NOTIFY) << "attached by its path";
    for (const ubus_object &obj : objects) {
        const std::vector<frame> found = other.request(lookup_frame(1, obj.name));
        ASSERT_EQ(found.size(), 2u) << obj.name;
        EXPECT_EQ(frame_number(found[0], UBUS_ATTR_OBJID), obj.id);
        EXPECT_EQ(frame_number(found[0], UBUS_ATTR_OBJTYPE), obj.type->id);
    }
    EXPECT_NE(type.id, other_type.id);

    story.clear();
    EXPECT_EQ(other.status_of(event_frame("lost")), 0);
    EXPECT_EQ(notify(other, target), 1u);
    EXPECT_TRUE(run_loop([] { return !story.empty(); }));
    EXPECT_EQ(story, std::vector<std::string>{"notice"}) << "event patterns are not restored";
}

TEST_F(Reconnect, WithoutItALossIsNoticedByTheCallThatWaitsAndEndsTheLoop)
{
    static int losses;
    losses = 0;
    ubus_context *ctx = ubus_connect(broker.socket.c_str());
    ASSERT_NE(ctx, nullptr);
    raw_client owner(broker.socket);
    const uint32_t silent = publish(owner, "silent");
    ubus_request first;
    ASSERT_EQ(ubus_invoke_async(ctx, silent, "get", nullptr, &first), 0);
    ASSERT_EQ(frame_type(owner.receive()), UBUS_MSG_INVOKE);
    broker.stop();
    EXPECT_EQ(ubus_complete_request(ctx, &first, PATIENCE_MS), UBUS_STATUS_CONNECTION_FAILED);
    ubus_free(ctx);

    // Left alone, a program that watches the socket goes on without the bus.
    broker.start();
    ctx = ubus_connect(broker.socket.c_str());
    ASSERT_NE(ctx, nullptr);
    ubus_add_uloop(ctx);
    broker.stop();
    EXPECT_TRUE(run_loop([ctx] { return !ctx->sock.registered; }));
    EXPECT_FALSE(uloop_cancelled);
    ctx->connection_lost = [](ubus_context *) { losses++; };
    EXPECT_EQ(ubus_notify(ctx, &objects[0], "n", nullptr, 0), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(losses, 1) << "each failed wait reports the loss";
    ubus_free(ctx);
}
