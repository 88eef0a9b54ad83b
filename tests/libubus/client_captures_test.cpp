// Replays the broker's side of recorded conversations to the client library and to the tool: what
// they send must be what real clients sent, byte for byte, and they must make the same of it.
//
// Four conversations are not replayed here, because their client sent by hand what the library
// never sends: 27 (ping), 28 (unknown types), 29 (text without an end), 30 (a length below the
// minimum). broker_captures_test.cpp has them.
#include <gtest/gtest.h>
#include <libubox_host/clock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "../../host/libubus/wire.h"
#include "fake_broker.h"

namespace {

constexpr uint32_t LED = 0x67797a71;

// Policies and handlers as in the recorded programs.

const blobmsg_policy SET_POLICY[] = {
    {"state", BLOBMSG_TYPE_BOOL},
    {"brightness", BLOBMSG_TYPE_INT32},
    {"name", BLOBMSG_TYPE_STRING},
};

std::vector<int> received_fds;
ubus_request_data late_call;
bool late_called;

int set_handler(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *,
                blob_attr *msg)
{
    blob_attr *tb[3];
    EXPECT_EQ(blobmsg_parse(SET_POLICY, 3, tb, blob_data(msg), (unsigned)blob_len(msg)), 0);
    EXPECT_STREQ(req->acl.user, "root");
    wire_buf b;
    blobmsg_add_u8(&b.b, "state", blobmsg_get_bool(tb[0]));
    blobmsg_add_u32(&b.b, "brightness", blobmsg_get_u32(tb[1]));
    void *info = blobmsg_open_table(&b.b, "info");
    blobmsg_add_string(&b.b, "name", blobmsg_get_string(tb[2]));
    void *modes = blobmsg_open_array(&b.b, "modes");
    blobmsg_add_string(&b.b, nullptr, "on");
    blobmsg_add_string(&b.b, nullptr, "off");
    blobmsg_close_array(&b.b, modes);
    blobmsg_add_u64(&b.b, "uptime", 5000000000);
    blobmsg_add_double(&b.b, "load", 0.5);
    blobmsg_add_u16(&b.b, "port", 8080);
    blobmsg_close_table(&b.b, info);
    return ubus_send_reply(ctx, req, b.msg());
}

int get_handler(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *)
{
    int fd = ubus_request_get_caller_fd(req);
    if (fd >= 0)
        received_fds.push_back(fd);
    wire_close(&fd);
    for (uint32_t i = 1; i <= 3; i++) {
        wire_buf b;
        blobmsg_add_u32(&b.b, "i", i);
        EXPECT_EQ(ubus_send_reply(ctx, req, b.msg()), 0);
    }
    return 0;
}

int late_handler(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *,
                 blob_attr *)
{
    ubus_defer_request(ctx, req, &late_call);
    late_called = true;
    return 0;
}

const ubus_method TYPE_METHODS[] = {
    UBUS_METHOD("set", set_handler, SET_POLICY),
    UBUS_METHOD_NOARG("get", get_handler),
};
// Calls may go to more methods than the type tells.
const ubus_method METHODS[] = {
    UBUS_METHOD("set", set_handler, SET_POLICY),
    UBUS_METHOD_NOARG("get", get_handler),
    UBUS_METHOD_NOARG("late", late_handler),
    UBUS_METHOD_NOARG("hang", late_handler),
};

ubus_object object_named(const char *name, ubus_object_type *type)
{
    ubus_object obj{};
    obj.name = name;
    obj.type = type;
    obj.methods = METHODS;
    obj.n_methods = ARRAY_SIZE(METHODS);
    return obj;
}

ubus_object_type led_type()
{
    return UBUS_OBJECT_TYPE("led", TYPE_METHODS);
}

// One recorded connection from its beginning, played by a program of ours.
struct program {
    fake_broker broker;
    ubus_context *ctx = nullptr;

    virtual ~program() { ubus_free(ctx); }
    virtual void act(int number) = 0;

    void await(const std::function<bool()> &condition) { EXPECT_TRUE(pump(ctx, condition)); }

    void play(int number, char connection)
    {
        SCOPED_TRACE("conversation " + std::to_string(number));
        broker.play(steps_of(number, connection));
        act(number);
        await([this] { return broker.done(); });
        EXPECT_EQ(broker.finish(), "");
    }

    // What the program did between the recorded conversations, answered with these frames.
    void between(const std::vector<std::vector<frame>> &replies, const std::function<int()> &action)
    {
        std::vector<capture_step> steps;
        for (const std::vector<frame> &r : replies)
            for (const capture_step &step : answered(r))
                steps.push_back(step);
        broker.play(steps);
        EXPECT_EQ(action(), 0);
        EXPECT_EQ(broker.finish(), "");
    }

    void end()
    {
        ubus_free(ctx);
        ctx = nullptr;
        EXPECT_EQ(broker.leftover(), "");
    }
};

frame status_frame(uint16_t seq, uint32_t peer)
{
    return make_frame(UBUS_MSG_STATUS, seq, peer,
                      [](blob_buf *b) { blob_put_int32(b, UBUS_ATTR_STATUS, 0); });
}

std::vector<frame> published_frames(uint16_t seq, uint32_t id)
{
    return {make_frame(UBUS_MSG_DATA, seq, 0,
                       [id](blob_buf *b) { blob_put_int32(b, UBUS_ATTR_OBJID, id); }),
            status_frame(seq, 0)};
}

// S owns objects.
struct owner : program {
    ubus_object_type type = led_type();
    ubus_object led = object_named("demo.led", &type);
    ubus_object led2 = object_named("demo.led2", &type);
    ubus_object clash = object_named("demo.led", &type);
    ubus_object fresh = object_named("demo.new", &type);

    int notify(uint32_t value, int timeout)
    {
        wire_buf b;
        blobmsg_add_u32(&b.b, "v", value);
        return ubus_notify(ctx, &led, "changed", b.msg(), timeout);
    }

    void answer_late()
    {
        late_called = false;
        await([] { return late_called; });
        wire_buf b;
        blobmsg_add_string(&b.b, "late", "yes");
        EXPECT_EQ(ubus_send_reply(ctx, &late_call, b.msg()), 0);
        ubus_complete_deferred_request(ctx, &late_call, 0);
    }

    void act(int number) override
    {
        switch (number) {
        case 2:
            ctx = ubus_connect(broker.socket.c_str());
            ASSERT_NE(ctx, nullptr);
            EXPECT_EQ(ctx->local_id, cpu_to_be32(0x24c546c4));
            EXPECT_EQ(ubus_add_object(ctx, &led), 0);
            EXPECT_EQ(led.id, LED);
            EXPECT_EQ(type.id, 0x9080e792u);
            break;
        case 3:
            EXPECT_EQ(ubus_add_object(ctx, &led2), 0);
            EXPECT_EQ(led2.id, 0x651e9b2cu);
            break;
        case 4:
            EXPECT_EQ(ubus_add_object(ctx, &clash), UBUS_STATUS_INVALID_ARGUMENT);
            EXPECT_EQ(clash.id, 0u);
            break;
        case 14:
            answer_late();
            break;
        case 15:
            await([this] { return led.has_subscribers; });
            break;
        case 16:
            EXPECT_EQ(notify(1, -1), 0);
            break;
        case 17:
            EXPECT_EQ(notify(2, PATIENCE_MS), 0);
            break;
        case 18:
            await([this] { return !led.has_subscribers; });
            break;
        case 19:
            EXPECT_EQ(ubus_remove_object(ctx, &led), 0);
            EXPECT_EQ(led.id, 0u);
            EXPECT_NE(type.id, 0u) << "the type has another object";
            break;
        case 24:
            EXPECT_EQ(ubus_add_object(ctx, &fresh), 0);
            EXPECT_EQ(ubus_remove_object(ctx, &fresh), 0);
            break;
        case 31:
            received_fds.clear();
            await([] { return !received_fds.empty(); });
            break;
        }
    }
};

class OwnerCaptures : public ::testing::TestWithParam<int> {};

// W watches: subscriptions and events.
struct watcher : program {
    ubus_subscriber sub{};
    ubus_event_handler first{}, second{}, third{};
    ubus_object_type type{};
    ubus_object self{};

    static inline std::vector<std::string> seen;

    static int notification_cb(ubus_context *, ubus_object *, ubus_request_data *,
                               const char *method, blob_attr *)
    {
        seen.push_back(method);
        return 0;
    }
    static void remove_cb(ubus_context *, ubus_subscriber *, uint32_t id)
    {
        seen.push_back("gone " + std::to_string(id));
    }
    static void event_cb(ubus_context *, ubus_event_handler *, const char *type, blob_attr *)
    {
        seen.push_back(type);
    }

    watcher()
    {
        seen.clear();
        sub.cb = notification_cb;
        sub.remove_cb = remove_cb;
        first.cb = second.cb = third.cb = event_cb;
    }

    void await_sight(const std::string &what)
    {
        await([] { return !seen.empty(); });
        ASSERT_FALSE(seen.empty());
        EXPECT_EQ(seen.front(), what);
        seen.erase(seen.begin());
    }

    uint32_t look_up_led()
    {
        uint32_t id = 0;
        EXPECT_EQ(ubus_lookup_id(ctx, "demo.led", &id), 0);
        return id;
    }

    void watch_objects(ubus_event_handler *ev, uint16_t seq, uint32_t id, const char *pattern)
    {
        between({published_frames(seq, id), {status_frame((uint16_t)(seq + 1), 1)}},
                [&] { return ubus_register_event_handler(ctx, ev, pattern); });
    }

    // The object of conversation 25, with every form of method.
    void publish_self()
    {
        static const blobmsg_policy ECHO[] = {
            {"msg", BLOBMSG_TYPE_STRING}, {"n", BLOBMSG_TYPE_INT32}, {"flag", BLOBMSG_TYPE_BOOL}};
        static const blobmsg_policy TWO[] = {{"list", BLOBMSG_TYPE_ARRAY},
                                             {"cfg", BLOBMSG_TYPE_TABLE}};
        static const ubus_method ALL[] = {
            UBUS_METHOD("echo", get_handler, ECHO),
            UBUS_METHOD("two", get_handler, TWO),
            UBUS_METHOD_NOARG("fail", get_handler),
            UBUS_METHOD_NOARG("neg", get_handler),
            UBUS_METHOD_TAG_NOARG("multi", get_handler, UBUS_TAG_STATUS),
            UBUS_METHOD_NOARG("slow", get_handler),
            UBUS_METHOD_NOARG("hang", get_handler),
            UBUS_METHOD_NOARG("die", get_handler),
            UBUS_METHOD_NOARG("nested", get_handler),
            UBUS_METHOD_MASK("masked", get_handler, ECHO, 1 << 1),
        };
        type = UBUS_OBJECT_TYPE("self", ALL);
        self = object_named("demo.self", &type);
        EXPECT_EQ(ubus_add_object(ctx, &self), 0);
    }

    void act(int number) override
    {
        switch (number) {
        case 15:
            ctx = ubus_connect(broker.socket.c_str());
            ASSERT_NE(ctx, nullptr);
            EXPECT_EQ(ubus_register_subscriber(ctx, &sub), 0);
            EXPECT_EQ(ubus_subscribe(ctx, &sub, look_up_led()), 0);
            break;
        case 16:
        case 17:
            await_sight("changed");
            break;
        case 18:
            EXPECT_EQ(ubus_unsubscribe(ctx, &sub, look_up_led()), 0);
            break;
        case 19:
            await_sight("gone " + std::to_string(LED));
            break;
        case 20:
            EXPECT_EQ(ubus_register_event_handler(ctx, &first, "foo.*"), 0);
            break;
        case 21:
            await_sight("foo.bar");
            break;
        case 24:
            await_sight("ubus.object.add");
            await_sight("ubus.object.remove");
            break;
        case 25:
            publish_self();
            await_sight("ubus.object.add");
            await_sight("ubus.object.add");
            break;
        }
    }

    void prepare(int number)
    {
        if (number == 19)
            between({{status_frame(6, 0)}, {status_frame(7, 0)}}, [this] {
                EXPECT_EQ(ubus_lookup(ctx, "demo.led", nullptr, nullptr), 0);
                return ubus_subscribe(ctx, &sub, LED);
            });
        if (number == 24)
            watch_objects(&second, 10, 0xadb5cf6e, "ubus.object.*");
        if (number == 25)
            watch_objects(&third, 12, 0x6d4b3e44, "ubus.object.add");
    }
};

class WatcherCaptures : public ::testing::TestWithParam<int> {};

} // namespace

TEST_P(OwnerCaptures, SendsAsRecorded)
{
    owner s;
    for (int number : {2, 3, 4, 9, 10, 11, 14, 15, 16, 17, 18, 19, 24, 31})
        if (number <= GetParam() && !HasFailure())
            s.play(number, 'S');
    s.end();
}

INSTANTIATE_TEST_SUITE_P(Conversation, OwnerCaptures,
                         ::testing::Values(2, 3, 4, 9, 10, 11, 14, 15, 16, 17, 18, 19, 24, 31));

TEST_P(WatcherCaptures, SendsAsRecorded)
{
    watcher w;
    for (int number : {15, 16, 17, 18, 19, 20, 21, 24, 25}) {
        if (number > GetParam() || HasFailure())
            break;
        w.prepare(number);
        w.play(number, 'W');
    }
    w.end();
}

INSTANTIATE_TEST_SUITE_P(Conversation, WatcherCaptures,
                         ::testing::Values(15, 16, 17, 18, 19, 20, 21, 24, 25));

TEST(ClientCaptures, Conversation1ConnectsAndLeaves)
{
    fake_broker broker;
    broker.play(steps_of(1, 'A'));
    ubus_context *ctx = ubus_connect(broker.socket.c_str());
    ASSERT_NE(ctx, nullptr);
    ubus_free(ctx);
    EXPECT_EQ(broker.finish(), "");
}

TEST(ClientCaptures, Conversation26OwnerThatNeverAnswersSendsNothing)
{
    struct victim : program {
        ubus_object_type type = led_type();
        ubus_object obj = object_named("demo.victim", &type);
        void act(int) override
        {
            late_called = false;
            await([] { return late_called; });
            EXPECT_TRUE(obj.has_subscribers);
            ubus_free(ctx);
            ctx = nullptr;
        }
    } k;
    std::vector<capture_step> begin = {
        {capture_step::CONNECT, 'K', {}, false},
        {capture_step::TO_CLIENT, 'K', make_frame(UBUS_MSG_HELLO, 0, 0x2222), false}};
    for (const capture_step &step : answered(published_frames(1, 0x8a375f15)))
        begin.push_back(step);
    k.broker.play(begin);
    k.ctx = ubus_connect(k.broker.socket.c_str());
    ASSERT_NE(k.ctx, nullptr);
    EXPECT_EQ(ubus_add_object(k.ctx, &k.obj), 0);
    k.broker.play(steps_of(26, 'K'));
    k.act(26);
    EXPECT_EQ(k.broker.finish(), "");
}

namespace {
// R, a client by hand whose messages are those of the library.
struct caller : program {
    ubus_subscriber sub{};
    static inline uint32_t gone;

    // Connects between the recorded conversations; the next request gets `seq`.
    void begin(uint16_t seq)
    {
        broker.play({{capture_step::CONNECT, 'R', {}, false},
                     {capture_step::TO_CLIENT, 'R', make_frame(UBUS_MSG_HELLO, 0, 0x2222), false}});
        ctx = ubus_connect(broker.socket.c_str());
        ASSERT_NE(ctx, nullptr);
        ctx->request_seq = (uint16_t)(seq - 1);
    }

    void lose_target()
    {
        ubus_request never;
        uint32_t id = 0;
        gone = 0;
        sub.remove_cb = [](ubus_context *, ubus_subscriber *, uint32_t target) { gone = target; };
        EXPECT_EQ(ubus_lookup_id(ctx, "demo.victim", &id), 0);
        EXPECT_EQ(ubus_register_subscriber(ctx, &sub), 0);
        EXPECT_EQ(ubus_subscribe(ctx, &sub, id), 0);
        ctx->request_seq = 899;
        EXPECT_EQ(ubus_invoke_async(ctx, id, "hang", nullptr, &never), 0);
        ubus_complete_request_async(ctx, &never);
        await([id] { return gone == id; });
        EXPECT_FALSE(never.status_msg) << "nothing tells of the owner's death";
        ubus_abort_request(ctx, &never);
    }

    void call_with_fd()
    {
        static std::vector<uint32_t> values;
        values.clear();
        const auto data_cb = [](ubus_request *, int, blob_attr *msg) {
            static const blobmsg_policy policy = {"i", BLOBMSG_TYPE_INT32};
            blob_attr *tb;
            (void)blobmsg_parse(&policy, 1, &tb, blob_data(msg), (unsigned)blob_len(msg));
            values.push_back(tb ? blobmsg_get_u32(tb) : 0);
        };
        EXPECT_EQ(ubus_invoke_fd(ctx, 0x651e9b2c, "get", nullptr, data_cb, nullptr, PATIENCE_MS,
                                 dup(STDIN_FILENO)),
                  0);
        EXPECT_EQ(values, (std::vector<uint32_t>{1, 2, 3}));
    }

    void act(int number) override
    {
        if (!ctx)
            ctx = ubus_connect(broker.socket.c_str());
        ASSERT_NE(ctx, nullptr);
        if (number == 13)
            EXPECT_EQ(ubus_invoke(ctx, 0x12345678, "m", nullptr, nullptr, nullptr, 0),
                      UBUS_STATUS_NOT_FOUND);
        else if (number == 26)
            lose_target();
        else if (number == 31)
            call_with_fd();
        else
            EXPECT_EQ(ubus_lookup(ctx, "none", nullptr, nullptr), UBUS_STATUS_NOT_FOUND);
    }
};

class CallerCaptures : public ::testing::TestWithParam<int> {};
} // namespace

TEST_P(CallerCaptures, SendsAsRecorded)
{
    caller r;
    if (GetParam() == 26)
        r.begin(2);
    if (GetParam() == 31)
        r.begin(5);
    r.play(GetParam(), 'R');
    r.end();
}

INSTANTIATE_TEST_SUITE_P(Conversation, CallerCaptures, ::testing::Values(13, 26, 31, 33));

namespace {
struct auto_program {
    ubus_auto_conn conn{};
    ubus_event_handler handler{};
    ubus_object_type type = led_type();
    ubus_object obj = object_named("demo.auto", &type);
    static inline auto_program *self;

    static void connected_cb(ubus_context *ctx)
    {
        self->handler.cb = watcher::event_cb;
        EXPECT_EQ(ubus_register_event_handler(ctx, &self->handler, "foo.*"), 0);
        EXPECT_EQ(ubus_add_object(ctx, &self->obj), 0);
    }
};
} // namespace

TEST(ClientCaptures, Conversation32PublishesAgainInTheOrderOfTheOldIds)
{
    fake_broker broker;
    std::vector<capture_step> steps = {
        {capture_step::CONNECT, 'P', {}, false},
        {capture_step::TO_CLIENT, 'P', make_frame(UBUS_MSG_HELLO, 0, 0x2222), false}};
    for (const std::vector<frame> &replies :
         {published_frames(1, 0x2000), {status_frame(2, 1)}, published_frames(3, 0x90000000)})
        for (const capture_step &step : answered(replies))
            steps.push_back(step);
    steps.push_back({capture_step::CLOSED_BY_BROKER, 'P', {}, false});
    for (const capture_step &step : steps_of(32, 'P'))
        steps.push_back(step);

    auto_program p;
    auto_program::self = &p;
    p.conn.path = broker.socket.c_str();
    p.conn.cb = auto_program::connected_cb;
    uloop_init();
    uloop_clock_virtual(true);
    uloop_clock_settle_ms(20);
    broker.play(steps);
    ubus_auto_connect(&p.conn);
    EXPECT_EQ(p.obj.id, 0x90000000u);
    EXPECT_EQ(uloop_clock_run_ms(1200), 0);
    EXPECT_EQ(broker.finish(), "");
    EXPECT_EQ(p.handler.obj.id, 0x66be3fcau);
    EXPECT_EQ(p.obj.id, 0xd5ae9425u);
    EXPECT_EQ(p.type.id, 0xe3082351u);
    ubus_auto_shutdown(&p.conn);
    EXPECT_EQ(broker.leftover(), "");
    uloop_clock_virtual(false);
    uloop_done();
}

TEST(ClientCaptures, Conversation33MonitorSeesEveryMessage)
{
    static std::vector<uint32_t> seqs;
    seqs.clear();
    fake_broker broker;
    broker.play(steps_of(33, 'M'));
    ubus_context *ctx = ubus_connect(broker.socket.c_str());
    ASSERT_NE(ctx, nullptr);
    ctx->monitor_cb = [](ubus_context *, uint32_t seq, blob_attr *) { seqs.push_back(seq); };
    EXPECT_EQ(ubus_monitor_start(ctx), 0);
    EXPECT_TRUE(pump(ctx, [] { return seqs.size() == 4; }));
    EXPECT_EQ(seqs, (std::vector<uint32_t>{1, 2, 3, 4}));
    ubus_free(ctx);
    EXPECT_EQ(broker.finish(), "");
    EXPECT_EQ(broker.leftover(), "");
}

namespace {
struct tool_run {
    int number;
    std::vector<std::string> args;
    const char *output;
    const char *errors;
    int exit_code;
};

const tool_run TOOL_RUNS[] = {
    {5, {"list"}, "demo.led\ndemo.led2\n", "", 0},
    {6,
     {"-v", "list", "demo.led"},
     "'demo.led' @67797a71\n"
     "\t\"set\":{\"state\":\"Boolean\",\"brightness\":\"Integer\",\"name\":\"String\"}\n"
     "\t\"get\":{}\n",
     "",
     0},
    {7, {"list", "demo.*"}, "demo.led\ndemo.led2\n", "", 0},
    {8, {"list", "nosuch"}, "", "Command failed: Not found\n", 4},
    {9,
     {"call", "demo.led", "set",
      R"({"state":true,"brightness":-5,"name":"x","extra":[1,{"k":2.5}]})"},
     "{\n\t\"state\": true,\n\t\"brightness\": -5,\n\t\"info\": {\n\t\t\"name\": \"x\",\n"
     "\t\t\"modes\": [\n\t\t\t\"on\",\n\t\t\t\"off\"\n\t\t],\n\t\t\"uptime\": 5000000000,\n"
     "\t\t\"load\": 0.500000,\n\t\t\"port\": 8080\n\t}\n}\n",
     "",
     0},
    {10, {"-S", "call", "demo.led", "get"}, "{\"i\":1}\n{\"i\":2}\n{\"i\":3}\n", "", 0},
    {11,
     {"call", "demo.led", "bogus"},
     "",
     "Command failed: ubus call demo.led bogus (Method not found)\n",
     253},
    {12, {"call", "nosuch", "get"}, "", "Command failed: Not found\n", 4},
    {14, {"call", "demo.led", "late"}, "{\n\t\"late\": \"yes\"\n}\n", "", 0},
    {21, {"send", "foo.bar", R"({"n":7,"s":"t"})"}, "", "", 0},
    {22, {"send", "fo"}, "", "", 0},
    {23, {"send", "ubus.x"}, "", "Command failed: Permission denied\n", 6},
};

class ToolCaptures : public ::testing::TestWithParam<tool_run> {};

std::string read_file(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}
} // namespace

TEST_P(ToolCaptures, SendsAndPrintsAsRecorded)
{
    const tool_run &run = GetParam();
    fake_broker broker;
    broker.play(steps_of(run.number, 'C'));
    std::vector<std::string> argv = {UBUS_PROGRAM, "-s", broker.socket};
    argv.insert(argv.end(), run.args.begin(), run.args.end());
    child tool;
    const std::string errors = broker.folder.path + "/errors";
    tool.start(argv, true, errors);
    EXPECT_EQ(tool.read_all(), run.output);
    EXPECT_EQ(tool.wait(), run.exit_code);
    EXPECT_EQ(read_file(errors), run.errors);
    EXPECT_EQ(broker.finish(), "");
}

INSTANTIATE_TEST_SUITE_P(Conversation, ToolCaptures, ::testing::ValuesIn(TOOL_RUNS),
                         [](const auto &run) { return std::to_string(run.param.number); });
