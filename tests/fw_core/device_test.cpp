// Check-in requests to the cloud-communication daemon, there, missing, silent or gone; reboots.
#include <libubox_host/clock.h>
#include <sys/stat.h>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/log.h"
#include "support/bus_fixture.h"

namespace {

std::vector<std::string> gReceived;
std::vector<ubus_request_data> gDeferred;
bool gSilent;

int checkin_received(ubus_context *ctx, ubus_object *, ubus_request_data *request, const char *,
                     blob_attr *msg)
{
    gReceived.push_back(zu_blobmsg_json(msg, true).get());
    if (gSilent)
        ubus_defer_request(ctx, request, &gDeferred.emplace_back());
    return UBUS_STATUS_OK;
}

const ubus_method METHODS[] = {UBUS_METHOD_NOARG("checkin", checkin_received)};

struct Checkin : bus_fixture {
    ubus_object_type type = UBUS_OBJECT_TYPE("cloud", METHODS);
    ubus_object cloud = {};

    void SetUp() override
    {
        bus_fixture::SetUp();
        gReceived.clear();
        gDeferred.clear();
        gSilent = false;
        cloud.name = "qnet.cloud_comm";
        cloud.type = &type;
        cloud.methods = METHODS;
        cloud.n_methods = 1;
        ASSERT_EQ(ubus_add_object(stranger, &cloud), 0);
    }
    void answer_all()
    {
        for (ubus_request_data &request : gDeferred)
            ubus_complete_deferred_request(stranger, &request, 0);
        gDeferred.clear();
        settle();
    }
};

TEST_F(Checkin, ASilentPeerGathersAFewRequestsAndIsGivenUp)
{
    gSilent = true;
    for (int i = 0; i < CLOUD_CHECKINS_MAX + 3; i++)
        cloud_checkin(daemon, i == 0 ? "full" : "normal", i == 0);
    run_until([] { return gReceived.size() == CLOUD_CHECKINS_MAX; });
    settle();
    EXPECT_EQ(gReceived.size(), static_cast<std::size_t>(CLOUD_CHECKINS_MAX));
    EXPECT_EQ(gReceived[0], R"({"checkin_type":"full","delayed":true})");
    EXPECT_EQ(gReceived[1], R"({"checkin_type":"normal"})");
    EXPECT_FALSE(list_empty(&daemon->requests));
    uloop_clock_virtual(true);
    uloop_clock_run_ms(CLOUD_CHECKIN_TIMEOUT_MS + 100);
    uloop_clock_virtual(false);
    EXPECT_TRUE(list_empty(&daemon->requests));
    answer_all(); // too late: nobody listens any more
    cloud_checkin(daemon, "normal", false);
    run_until([] { return gReceived.size() == CLOUD_CHECKINS_MAX + 1; });
    answer_all();
    cloud_checkin(daemon, "normal", false);
    run_until([] { return gReceived.size() == CLOUD_CHECKINS_MAX + 2; });
    answer_all();
}

TEST_F(Checkin, AMissingPeerOrBusIsOnlyLogged)
{
    gSilent = true;
    cloud_checkin(nullptr, "normal", false);
    cloud_checkin(daemon, "normal", false);
    run_until([] { return gReceived.size() == 1; });
    answer_all();
    ASSERT_EQ(ubus_remove_object(stranger, &cloud), 0);
    cloud_checkin(daemon, "normal", false);
    broker_stop();
    cloud_checkin(daemon, "normal", false);
    settle();
    EXPECT_EQ(gReceived.size(), 1u);
}

TEST(Reboot, RunsTheSystemsCommandAndTellsWhenItCannot)
{
    const temporary_directory directory;
    const std::string old_path = getenv("PATH");
    setenv("PATH", directory.path.c_str(), 1); // whatever happens, not the machine's own
    std::string error;
    const auto listen = [](const char *message, void *priv) {
        *static_cast<std::string *>(priv) = message;
    };
    zu_log_set_error_listener(listen, &error);
    _fw_core_reboot("testing");
    EXPECT_NE(error.find("127"), std::string::npos);

    error.clear();
    write_file(directory / "reboot", "#!/bin/sh\n: > '" + (directory / "rebooted") + "'\n");
    chmod((directory / "reboot").c_str(), 0755);
    _fw_core_reboot("testing");
    EXPECT_EQ(error, "");
    EXPECT_EQ(access((directory / "rebooted").c_str(), F_OK), 0);
    zu_log_set_error_listener(nullptr, nullptr);
    setenv("PATH", old_path.c_str(), 1);
}

} // namespace
