// Replays the broker's side of recorded conversations to the client library and to the tool: what
// they send must be what real clients sent, byte for byte, and they must make the same of it.
//
// Four conversations are not replayed here, because their client sent by hand what the library
// never sends: 27 (ping), 28 (unknown types), 29 (text without an end), 30 (a length below the
// minimum). broker_captures_test.cpp has them.
#include <gtest/gtest.h>
#include <libubox_host/clock.h>
#include <unistd.h>

#include <sstream>

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

    ~program() { ubus_free(ctx); }

    void await(const std::function<bool()> &condition) { EXPECT_TRUE(pump(ctx, condition)); }

    void connect()
    {
        ctx = ubus_connect(broker.socket.c_str());
        ASSERT_NE(ctx, nullptr);
    }

    // What the program does in a conversation; nothing after one that failed.
    void play(int number, char connection, const std::function<void()> &act)
    {
        SCOPED_TRACE("conversation " + std::to_string(number));
        if (::testing::Test::HasFailure())
            return;
        broker.play(steps_of(number, connection));
        act();
        if (ctx)
            await([this] { return broker.done(); });
        EXPECT_EQ(broker.finish(), "");
    }

    // What it did between the recorded conversations, answered with these frames.
    void between(const std::vector<std::vector<frame>> &replies, const std::function<int()> &action)
    {
        broker.play(answered(replies));
        EXPECT_EQ(action(), 0);
        EXPECT_EQ(broker.finish(), "");
    }

    // Connects between the recorded conversations; the next request gets `seq`.
    void connect_between(uint16_t seq)
    {
        broker.play(greeted('R'));
        connect();
        ctx->request_seq = (uint16_t)(seq - 1);
    }

    void end()
    {
        ubus_free(ctx);
        ctx = nullptr;
        EXPECT_EQ(broker.leftover(), "");
    }
};

std::vector<frame> published_frames(uint16_t seq, uint32_t id)
{
    return {make_frame(UBUS_MSG_DATA, seq, 0,
                       [id](blob_buf *b) { blob_put_int32(b, UBUS_ATTR_OBJID, id); }),
            status_frame(seq, 0)};
}

std::vector<std::string> seen;

int notification_cb(ubus_context *, ubus_object *, ubus_request_data *, const char *method,
                    blob_attr *)
{
    seen.push_back(method);
    return 0;
}

void remove_cb(ubus_context *, ubus_subscriber *, uint32_t id)
{
    seen.push_back("gone " + std::to_string(id));
}

void event_cb(ubus_context *, ubus_event_handler *, const char *type, blob_attr *)
{
    seen.push_back(type);
}

// W watches: subscriptions and events.
struct watcher : program {
    ubus_subscriber sub{};
    ubus_event_handler first{}, second{}, third{};

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

    uint32_t look_up(const char *path)
    {
        uint32_t id = 0;
        EXPECT_EQ(ubus_lookup_id(ctx, path, &id), 0);
        return id;
    }

    void watch_objects(ubus_event_handler *ev, uint16_t seq, uint32_t id, const char *pattern)
    {
        between({published_frames(seq, id), {status_frame((uint16_t)(seq + 1), 1)}},
                [&] { return ubus_register_event_handler(ctx, ev, pattern); });
    }
};

} // namespace

TEST(ClientCaptures, OwnerSendsAsRecorded)
{
    program s;
    ubus_object_type type = led_type();
    ubus_object led = object_named("demo.led", &type), led2 = object_named("demo.led2", &type);
    ubus_object clash = object_named("demo.led", &type), fresh = object_named("demo.new", &type);
    const auto loop = [&](int number, const std::function<bool()> &done) {
        s.play(number, 'S', [&] { s.await(done); });
    };
    const auto notify = [&](uint32_t value, int timeout) {
        wire_buf b;
        blobmsg_add_u32(&b.b, "v", value);
        EXPECT_EQ(ubus_notify(s.ctx, &led, "changed", b.msg(), timeout), 0);
    };
    s.play(2, 'S', [&] {
        s.connect();
        EXPECT_EQ(s.ctx->local_id, cpu_to_be32(0x24c546c4));
        EXPECT_EQ(ubus_add_object(s.ctx, &led), 0);
        EXPECT_EQ(led.id, LED);
        EXPECT_EQ(type.id, 0x9080e792u);
    });
    s.play(3, 'S', [&] {
        EXPECT_EQ(ubus_add_object(s.ctx, &led2), 0);
        EXPECT_EQ(led2.id, 0x651e9b2cu);
    });
    s.play(4, 'S', [&] {
        EXPECT_EQ(ubus_add_object(s.ctx, &clash), UBUS_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(clash.id, 0u);
    });
    for (int number : {9, 10, 11})
        s.play(number, 'S', [] {});
    late_called = false;
    s.play(14, 'S', [&] {
        s.await([] { return late_called; });
        wire_buf b;
        blobmsg_add_string(&b.b, "late", "yes");
        EXPECT_EQ(ubus_send_reply(s.ctx, &late_call, b.msg()), 0);
        ubus_complete_deferred_request(s.ctx, &late_call, 0);
    });
    loop(15, [&] { return led.has_subscribers; });
    s.play(16, 'S', [&] { notify(1, -1); });
    s.play(17, 'S', [&] { notify(2, PATIENCE_MS); });
    loop(18, [&] { return !led.has_subscribers; });
    s.play(19, 'S', [&] {
        EXPECT_EQ(ubus_remove_object(s.ctx, &led), 0);
        EXPECT_EQ(led.id, 0u);
        EXPECT_NE(type.id, 0u) << "the type has another object";
    });
    s.play(24, 'S', [&] {
        EXPECT_EQ(ubus_add_object(s.ctx, &fresh), 0);
        EXPECT_EQ(ubus_remove_object(s.ctx, &fresh), 0);
    });
    received_fds.clear();
    loop(31, [] { return !received_fds.empty(); });
    s.end();
}

TEST(ClientCaptures, WatcherSendsAsRecorded)
{
    // The object of conversation 25, with every form of method.
    static const blobmsg_policy ECHO[] = {
        {"msg", BLOBMSG_TYPE_STRING}, {"n", BLOBMSG_TYPE_INT32}, {"flag", BLOBMSG_TYPE_BOOL}};
    static const blobmsg_policy TWO[] = {{"list", BLOBMSG_TYPE_ARRAY}, {"cfg", BLOBMSG_TYPE_TABLE}};
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
    ubus_object_type type = UBUS_OBJECT_TYPE("self", ALL);
    ubus_object self = object_named("demo.self", &type);
    watcher w;
    w.play(15, 'W', [&] {
        w.connect();
        EXPECT_EQ(ubus_register_subscriber(w.ctx, &w.sub), 0);
        EXPECT_EQ(ubus_subscribe(w.ctx, &w.sub, w.look_up("demo.led")), 0);
    });
    for (int number : {16, 17})
        w.play(number, 'W', [&] { w.await_sight("changed"); });
    w.play(18, 'W', [&] { EXPECT_EQ(ubus_unsubscribe(w.ctx, &w.sub, w.look_up("demo.led")), 0); });
    w.between({{status_frame(6, 0)}, {status_frame(7, 0)}}, [&] {
        EXPECT_EQ(ubus_lookup(w.ctx, "demo.led", nullptr, nullptr), 0);
        return ubus_subscribe(w.ctx, &w.sub, LED);
    });
    w.play(19, 'W', [&] { w.await_sight("gone " + std::to_string(LED)); });
    w.play(20, 'W', [&] { EXPECT_EQ(ubus_register_event_handler(w.ctx, &w.first, "foo.*"), 0); });
    w.play(21, 'W', [&] { w.await_sight("foo.bar"); });
    w.watch_objects(&w.second, 10, 0xadb5cf6e, "ubus.object.*");
    w.play(24, 'W', [&] {
        w.await_sight("ubus.object.add");
        w.await_sight("ubus.object.remove");
    });
    w.watch_objects(&w.third, 12, 0x6d4b3e44, "ubus.object.add");
    w.play(25, 'W', [&] {
        EXPECT_EQ(ubus_add_object(w.ctx, &self), 0);
        w.await_sight("ubus.object.add");
        w.await_sight("ubus.object.add");
    });
    w.end();
}

TEST(ClientCaptures, Conversations1And13And33AreSingleCalls)
{
    program a, r, once;
    a.play(1, 'A', [&] {
        a.connect();
        a.end();
    });
    r.play(13, 'R', [&] {
        r.connect();
        EXPECT_EQ(ubus_invoke(r.ctx, 0x12345678, "m", nullptr, nullptr, nullptr, 0),
                  UBUS_STATUS_NOT_FOUND);
    });
    r.end();
    once.play(33, 'R', [&] {
        once.connect();
        EXPECT_EQ(ubus_lookup(once.ctx, "none", nullptr, nullptr), UBUS_STATUS_NOT_FOUND);
    });
    once.end();
}

TEST(ClientCaptures, Conversation26OwnerThatNeverAnswersSendsNothing)
{
    program k;
    ubus_object_type type = led_type();
    ubus_object victim = object_named("demo.victim", &type);
    k.connect_between(1);
    k.between({published_frames(1, 0x8a375f15)}, [&] { return ubus_add_object(k.ctx, &victim); });
    late_called = false;
    k.play(26, 'K', [&] {
        k.await([] { return late_called; });
        EXPECT_TRUE(victim.has_subscribers);
        ubus_free(k.ctx);
        k.ctx = nullptr;
    });
}

TEST(ClientCaptures, Conversation26CallerHearsNothingOfTheOwnersDeath)
{
    watcher r;
    r.connect_between(2);
    r.play(26, 'R', [&] {
        ubus_request never;
        const uint32_t id = r.look_up("demo.victim");
        EXPECT_EQ(ubus_register_subscriber(r.ctx, &r.sub), 0);
        EXPECT_EQ(ubus_subscribe(r.ctx, &r.sub, id), 0);
        r.ctx->request_seq = 899;
        EXPECT_EQ(ubus_invoke_async(r.ctx, id, "hang", nullptr, &never), 0);
        ubus_complete_request_async(r.ctx, &never);
        r.await_sight("gone " + std::to_string(id));
        EXPECT_FALSE(never.status_msg) << "nothing tells of the owner's death";
        ubus_abort_request(r.ctx, &never);
    });
    r.end();
}

TEST(ClientCaptures, Conversation31CallsWithADescriptor)
{
    static std::vector<uint32_t> values;
    values.clear();
    const auto data_cb = [](ubus_request *, int, blob_attr *msg) {
        static const blobmsg_policy policy = {"i", BLOBMSG_TYPE_INT32};
        blob_attr *tb;
        (void)blobmsg_parse(&policy, 1, &tb, blob_data(msg), (unsigned)blob_len(msg));
        values.push_back(tb ? blobmsg_get_u32(tb) : 0);
    };
    program r;
    r.connect_between(5);
    r.play(31, 'R', [&] {
        EXPECT_EQ(ubus_invoke_fd(r.ctx, 0x651e9b2c, "get", nullptr, data_cb, nullptr, PATIENCE_MS,
                                 dup(STDIN_FILENO)),
                  0);
        EXPECT_EQ(values, (std::vector<uint32_t>{1, 2, 3}));
    });
    r.end();
}

TEST(ClientCaptures, Conversation32PublishesAgainInTheOrderOfTheOldIds)
{
    static ubus_event_handler handler;
    static ubus_object_type type;
    static ubus_object obj;
    handler = {};
    handler.cb = event_cb;
    type = led_type();
    obj = object_named("demo.auto", &type);
    fake_broker broker;
    std::vector<capture_step> steps = greeted('P');
    for (const capture_step &step : answered(
             {published_frames(1, 0x2000), {status_frame(2, 1)}, published_frames(3, 0x90000000)}))
        steps.push_back(step);
    steps.push_back({capture_step::CLOSED_BY_BROKER, 'P', {}, false});
    for (const capture_step &step : steps_of(32, 'P'))
        steps.push_back(step);

    ubus_auto_conn conn{};
    conn.path = broker.socket.c_str();
    conn.cb = [](ubus_context *ctx) {
        EXPECT_EQ(ubus_register_event_handler(ctx, &handler, "foo.*"), 0);
        EXPECT_EQ(ubus_add_object(ctx, &obj), 0);
    };
    uloop_init();
    uloop_clock_virtual(true);
    uloop_clock_settle_ms(20);
    broker.play(steps);
    ubus_auto_connect(&conn);
    EXPECT_EQ(obj.id, 0x90000000u);
    EXPECT_EQ(uloop_clock_run_ms(1200), 0);
    EXPECT_EQ(broker.finish(), "");
    EXPECT_EQ(handler.obj.id, 0x66be3fcau);
    EXPECT_EQ(obj.id, 0xd5ae9425u);
    EXPECT_EQ(type.id, 0xe3082351u);
    ubus_auto_shutdown(&conn);
    EXPECT_EQ(broker.leftover(), "");
    uloop_clock_virtual(false);
    uloop_done();
}

TEST(ClientCaptures, Conversation33MonitorSeesEveryMessage)
{
    static std::vector<uint32_t> seqs;
    seqs.clear();
    program m;
    m.play(33, 'M', [&] {
        m.connect();
        m.ctx->monitor_cb = [](ubus_context *, uint32_t seq, blob_attr *) { seqs.push_back(seq); };
        EXPECT_EQ(ubus_monitor_start(m.ctx), 0);
        m.await([] { return seqs.size() == 4; });
        EXPECT_EQ(seqs, (std::vector<uint32_t>{1, 2, 3, 4}));
        ubus_free(m.ctx);
        m.ctx = nullptr;
    });
    m.end();
}

namespace {
struct tool_run {
    int number;
    const char *args; // parted by blanks
    const char *output;
    const char *errors;
    int exit_code;
};

const tool_run TOOL_RUNS[] = {
    {5, "list", "demo.led\ndemo.led2\n", "", 0},
    {6, "-v list demo.led",
     "'demo.led' @67797a71\n"
     "\t\"set\":{\"state\":\"Boolean\",\"brightness\":\"Integer\",\"name\":\"String\"}\n"
     "\t\"get\":{}\n",
     "", 0},
    {7, "list demo.*", "demo.led\ndemo.led2\n", "", 0},
    {8, "list nosuch", "", "Command failed: Not found\n", 4},
    {9, R"(call demo.led set {"state":true,"brightness":-5,"name":"x","extra":[1,{"k":2.5}]})",
     "{\n\t\"state\": true,\n\t\"brightness\": -5,\n\t\"info\": {\n\t\t\"name\": \"x\",\n"
     "\t\t\"modes\": [\n\t\t\t\"on\",\n\t\t\t\"off\"\n\t\t],\n\t\t\"uptime\": 5000000000,\n"
     "\t\t\"load\": 0.500000,\n\t\t\"port\": 8080\n\t}\n}\n",
     "", 0},
    {10, "-S call demo.led get", "{\"i\":1}\n{\"i\":2}\n{\"i\":3}\n", "", 0},
    {11, "call demo.led bogus", "", "Command failed: ubus call demo.led bogus (Method not found)\n",
     253},
    {12, "call nosuch get", "", "Command failed: Not found\n", 4},
    {14, "call demo.led late", "{\n\t\"late\": \"yes\"\n}\n", "", 0},
    {21, R"(send foo.bar {"n":7,"s":"t"})", "", "", 0},
    {22, "send fo", "", "", 0},
    {23, "send ubus.x", "", "Command failed: Permission denied\n", 6},
};

} // namespace

TEST(ToolCaptures, SendsAndPrintsAsRecorded)
{
    for (const tool_run &run : TOOL_RUNS) {
        SCOPED_TRACE("conversation " + std::to_string(run.number));
        fake_broker broker;
        broker.play(steps_of(run.number, 'C'));
        std::vector<std::string> argv = {UBUS_PROGRAM, "-s", broker.socket};
        std::istringstream words(run.args);
        for (std::string word; words >> word;)
            argv.push_back(word);
        child tool;
        const std::string errors = broker.folder / "errors";
        tool.start(argv, true, errors);
        EXPECT_EQ(tool.read_all(), run.output);
        EXPECT_EQ(tool.wait(), run.exit_code);
        EXPECT_EQ(read_file(errors), run.errors);
        EXPECT_EQ(broker.finish(), "");
    }
}
