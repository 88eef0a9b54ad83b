// Check-in requests to the cloud-communication daemon: there, missing, silent, gone.
#include "platform/fw_core/fw_core.h"

#include "support/bus_fixture.h"

namespace {

std::vector<std::string> g_received;
std::vector<ubus_request_data> g_deferred;
bool g_silent;

int checkin_received(ubus_context *ctx, ubus_object *, ubus_request_data *request, const char *,
                     blob_attr *msg)
{
    g_received.push_back(zu_blobmsg_json(msg, true).get());
    if (g_silent)
        ubus_defer_request(ctx, request, &g_deferred.emplace_back());
    return UBUS_STATUS_OK;
}

const ubus_method METHODS[] = {UBUS_METHOD_NOARG("checkin", checkin_received)};

struct checkin : bus_fixture {
    ubus_object_type type = UBUS_OBJECT_TYPE("cloud", METHODS);
    ubus_object cloud = {};

    void SetUp() override
    {
        bus_fixture::SetUp();
        g_received.clear();
        g_deferred.clear();
        g_silent = false;
        cloud.name = "qnet.cloud_comm";
        cloud.type = &type;
        cloud.methods = METHODS;
        cloud.n_methods = 1;
        ASSERT_EQ(ubus_add_object(stranger, &cloud), 0);
    }
    void answer_all()
    {
        for (ubus_request_data &request : g_deferred)
            ubus_complete_deferred_request(stranger, &request, 0);
        g_deferred.clear();
        settle();
    }
};

TEST_F(checkin, carries_its_type_and_delay)
{
    cloud_checkin(daemon, "normal", false);
    cloud_checkin(daemon, "full", true);
    run_until([] { return g_received.size() == 2; });
    settle();
    EXPECT_EQ(g_received[0], R"({"checkin_type":"normal"})");
    EXPECT_EQ(g_received[1], R"({"checkin_type":"full","delayed":true})");
}

TEST_F(checkin, a_silent_peer_gathers_a_few_requests_only)
{
    g_silent = true;
    for (int i = 0; i < CLOUD_CHECKINS_MAX + 3; i++)
        cloud_checkin(daemon, "normal", false);
    run_until([] { return g_received.size() == CLOUD_CHECKINS_MAX; });
    settle();
    EXPECT_EQ(g_received.size(), static_cast<std::size_t>(CLOUD_CHECKINS_MAX));
    answer_all();
    cloud_checkin(daemon, "normal", false);
    run_until([] { return g_received.size() == CLOUD_CHECKINS_MAX + 1; });
    answer_all();
}

TEST_F(checkin, a_missing_peer_or_bus_is_only_logged)
{
    g_silent = true;
    cloud_checkin(daemon, "normal", false);
    run_until([] { return g_received.size() == 1; });
    answer_all();
    ASSERT_EQ(ubus_remove_object(stranger, &cloud), 0);
    cloud_checkin(daemon, "normal", false);
    broker_stop();
    cloud_checkin(daemon, "normal", false);
    settle();
    EXPECT_EQ(g_received.size(), 1u);
}

} // namespace
