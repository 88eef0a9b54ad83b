// The generic methods over the bus: replies, statuses, and input from people who mean no good.
#include "platform/fw_core/fw_core.h"
#include "platform/zu/log.h"
#include "support/bus_fixture.h"

namespace {

/// What the package's callbacks do; each test sets its own.
std::function<int(blob_attr *, blob_buf *)> gBehaviour;
int gCalls;

int behave(ubus_context *, blob_attr *msg, blob_buf *reply)
{
    gCalls++;
    return gBehaviour ? gBehaviour(msg, reply) : 0;
}

constexpr package_callbacks WHOLE = {behave, behave, behave, behave, behave};
constexpr package_callbacks BARE = {};

const ubus_method METHODS[] = {
    UBUS_METHOD("parse_config", ubus_parse_config, ubus_package_parse_config_policy),
    UBUS_METHOD("reload_config", ubus_reload_config, ubus_package_reload_config_policy),
    UBUS_METHOD("set_debug_level", ubus_set_debug_level, ubus_package_set_debug_level_policy),
    UBUS_METHOD("gen_checkin", ubus_gen_checkin, ubus_package_gen_checkin_policy),
    UBUS_METHOD_NOARG("health_check", ubus_health_check),
    UBUS_METHOD("dump_state", ubus_dump_state, ubus_package_dump_state_policy),
};

const std::vector<const char *> PACKAGE_METHODS = {"parse_config", "reload_config", "gen_checkin",
                                                   "health_check", "dump_state"};

struct Methods : bus_fixture {
    ubus_object_type type = UBUS_OBJECT_TYPE("tests", METHODS);
    ubus_object whole = {}, bare = {}, unknown = {};

    void SetUp() override
    {
        bus_fixture::SetUp();
        gBehaviour = nullptr;
        gCalls = 0;
        debug_set_level(ZU_LOG_NOTICE);
        gPackage_method_handlers[0] = {"test.whole", &WHOLE};
        gPackage_method_handlers[1] = {"test.bare", &BARE};
        gPackage_method_handlers[2] = {"test.whole", &BARE}; // registered again: the first counts
        gPackage_method_handlers_index = 3;
        publish(whole, "test.whole");
        publish(bare, "test.bare");
        publish(unknown, "test.unknown");
    }
    void publish(ubus_object &object, const char *name)
    {
        object.name = name;
        object.type = &type;
        object.methods = METHODS;
        object.n_methods = static_cast<int>(std::size(METHODS));
        ASSERT_EQ(ubus_add_object(daemon, &object), 0);
    }
};

TEST_F(Methods, APackageIsFoundByItsObject)
{
    for (const char *method : PACKAGE_METHODS) {
        EXPECT_EQ(call("test.whole", method).status, UBUS_STATUS_OK) << method;
        EXPECT_EQ(call("test.bare", method).status, UBUS_STATUS_NOT_SUPPORTED) << method;
        EXPECT_EQ(call("test.unknown", method).status, UBUS_STATUS_NOT_FOUND) << method;
    }
    EXPECT_EQ(gCalls, 5);
}

TEST_F(Methods, ParseConfigTellsTheErrorsItMet)
{
    log_error("before");
    EXPECT_EQ(call("test.whole", "parse_config", R"({"params":{"a":1}})").document,
              R"({"success":true,"messages":[]})");

    gBehaviour = [](blob_attr *, blob_buf *) {
        log_error("invalid radio index: %d", 7);
        log_warning("not told");
        log_error("bad name 'a\nb'");
        return UBUS_STATUS_INVALID_ARGUMENT;
    };
    debug_set_level(0);
    const answer refused = call("test.whole", "parse_config", R"({"params":{}})");
    EXPECT_EQ(gDebug_error_listener, nullptr);
    EXPECT_EQ(refused.status, UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(refused.document, R"({"success":false,"messages":)"
                                R"(["invalid radio index: 7","bad name 'a\\x0ab'"]})");
}

TEST_F(Methods, ParseConfigKeepsItsReplySmall)
{
    gBehaviour = [](blob_attr *, blob_buf *) {
        for (int i = 0; i < 12000; i++)
            log_error("a%s", std::string(5000, i % 2 ? 'x' : 'y').append("\xc3\xa9").c_str());
        return UBUS_STATUS_INVALID_ARGUMENT;
    };
    const answer refused = call("test.whole", "parse_config", R"({"params":{}})");
    EXPECT_EQ(refused.status, UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_LT(refused.document.size(), 120000u);
    EXPECT_NE(refused.document.find(R"(xxx","and 11900 more"]})"), std::string::npos);

    // A long line is cut between characters: here the limit falls within one.
    gBehaviour = [](blob_attr *, blob_buf *) {
        std::string text = "x";
        while (text.size() < 3000)
            text += "\xc3\xa9";
        log_error("%s", text.c_str());
        return 0;
    };
    const std::string cut = call("test.whole", "parse_config").document;
    EXPECT_NE(cut.find("\xc3\xa9\"]"), std::string::npos);
}

TEST_F(Methods, DocumentsAreTheCallbacksAndFitOnTheBus)
{
    for (const char *method : {"gen_checkin", "dump_state"}) {
        gBehaviour = [](blob_attr *, blob_buf *reply) {
            return blobmsg_add_string(reply, "maint_ip", "10.1.2.3");
        };
        EXPECT_EQ(call("test.whole", method).document, R"({"maint_ip":"10.1.2.3"})");
        gBehaviour = [](blob_attr *, blob_buf *reply) {
            blobmsg_add_string(reply, "half", "done");
            return UBUS_STATUS_UNKNOWN_ERROR;
        };
        const answer failed = call("test.whole", method);
        EXPECT_EQ(failed.status, UBUS_STATUS_UNKNOWN_ERROR);
        EXPECT_EQ(failed.document, "");
    }
    for (const std::size_t size :
         {std::size_t{990000}, std::size_t{1000000}, std::size_t{5000000}}) {
        gBehaviour = [size](blob_attr *, blob_buf *reply) {
            return blobmsg_add_string(reply, "s", std::string(size, 'x').c_str());
        };
        const answer large = call("test.whole", "dump_state");
        const bool fits = size < PACKAGE_REPLY_MAX - 100;
        EXPECT_EQ(large.status, fits ? UBUS_STATUS_OK : UBUS_STATUS_UNKNOWN_ERROR) << size;
        EXPECT_EQ(large.document.size() > size, fits);
    }
    gBehaviour = nullptr;
    EXPECT_EQ(call("test.whole", "dump_state").status, UBUS_STATUS_OK); // still connected
}

TEST_F(Methods, HealthIsTheAbsenceOfProblems)
{
    EXPECT_EQ(call("test.whole", "health_check").document, R"({"healthy":true,"problems":[]})");
    gBehaviour = [](blob_attr *, blob_buf *problems) {
        blobmsg_add_string(problems, nullptr, "ap0_1 is down");
        blobmsg_add_string(problems, nullptr, "bat0 is missing");
        return 0;
    };
    EXPECT_EQ(call("test.whole", "health_check").document,
              R"({"healthy":false,"problems":["ap0_1 is down","bat0 is missing"]})");
    gBehaviour = [](blob_attr *, blob_buf *) { return UBUS_STATUS_UNKNOWN_ERROR; };
    EXPECT_EQ(call("test.whole", "health_check").status, UBUS_STATUS_UNKNOWN_ERROR);
}

TEST_F(Methods, ReloadRepliesWithTheStatusAlone)
{
    gBehaviour = [](blob_attr *, blob_buf *reply) {
        blobmsg_add_string(reply, "not", "sent");
        return UBUS_STATUS_UNKNOWN_ERROR;
    };
    const answer failed = call("test.whole", "reload_config", R"({"package":"wireless"})");
    EXPECT_EQ(failed.status, UBUS_STATUS_UNKNOWN_ERROR);
    EXPECT_EQ(failed.document, "");
}

TEST_F(Methods, MembersOfTheWrongTypeOrSizeAreRefusedBeforeThePackage)
{
    const struct {
        const char *method, *message;
        int status;
        bool secrets = false;
        int level = 2;
    } cases[] = {
        {"dump_state", R"({})", 0},
        {"dump_state", R"({"include_secrets":false})", 0},
        {"dump_state", R"({"include_secrets":true})", 0, true},
        {"dump_state", R"({"include_secrets":1})", UBUS_STATUS_INVALID_ARGUMENT},
        {"dump_state", R"({"include_secrets":"true"})", UBUS_STATUS_INVALID_ARGUMENT},
        {"dump_state", R"({"include_secrets":null})", UBUS_STATUS_INVALID_ARGUMENT},
        {"set_debug_level", R"({"level":0})", 0, false, 0},
        {"set_debug_level", R"({"level":5})", 0, false, 5},
        {"set_debug_level", R"({"level":6})", UBUS_STATUS_INVALID_ARGUMENT},
        {"set_debug_level", R"({"level":-1})", UBUS_STATUS_INVALID_ARGUMENT},
        {"set_debug_level", R"({"level":4294967297})", UBUS_STATUS_INVALID_ARGUMENT},
        {"set_debug_level", R"({"level":"5"})", UBUS_STATUS_INVALID_ARGUMENT},
        {"set_debug_level", R"({"level":true})", UBUS_STATUS_INVALID_ARGUMENT},
        {"set_debug_level", R"({})", UBUS_STATUS_INVALID_ARGUMENT},
        {"reload_config", R"({"package":{}})", UBUS_STATUS_INVALID_ARGUMENT},
        {"gen_checkin", R"({"checkin_type":5})", UBUS_STATUS_INVALID_ARGUMENT},
        {"gen_checkin", R"({"verbose":"yes"})", UBUS_STATUS_INVALID_ARGUMENT},
        // Members nobody asked for are ignored; parse_config leaves all judgement to the package.
        {"gen_checkin", R"({"new":[1,{"x":null}]})", 0},
        {"parse_config", R"({"params":"text"})", 0},
    };
    bool secrets = false;
    gBehaviour = [&](blob_attr *msg, blob_buf *) {
        secrets = package_include_secrets(msg);
        return 0;
    };
    int taken = 0;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.message);
        secrets = false;
        debug_set_level(2);
        EXPECT_EQ(call("test.whole", c.method, c.message).status, c.status);
        EXPECT_EQ(secrets, c.secrets);
        EXPECT_EQ(gDebug_log_level, c.level);
        taken += c.status == 0 && strcmp(c.method, "set_debug_level") != 0;
    }
    EXPECT_EQ(gCalls, taken);
    EXPECT_FALSE(package_include_secrets(nullptr));
}

} // namespace
