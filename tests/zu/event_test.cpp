// Events over the bus, and what happens without one.
#include "platform/zu/event.h"
#include "support/bus_fixture.h"

namespace {

struct Event : bus_fixture {};

TEST_F(Event, ReachesWhoListens)
{
    event_log heard(stranger, "network.*");
    const json_message data(R"({"success":true,"message":"internet test passed"})");
    EXPECT_EQ(_zu_send_event("network.inet_test", data.head), UBUS_STATUS_OK);
    EXPECT_EQ(_zu_send_event("network.linkbeat", nullptr), UBUS_STATUS_OK);
    run_until([&] { return heard.all.size() == 2; });
    EXPECT_EQ(heard.all[0].type, "network.inet_test");
    EXPECT_EQ(heard.all[0].document, R"({"success":true,"message":"internet test passed"})");
    EXPECT_EQ(heard.all[1].document, "{}");
    EXPECT_NE(_zu_send_event("ubus.object.add", nullptr), UBUS_STATUS_OK); // not ours to send
}

TEST_F(Event, FailsAtOnceWithoutAConnection)
{
    broker_stop();
    EXPECT_NE(_zu_send_event("network.inet_test", nullptr), UBUS_STATUS_OK);
    run_until([&] { return daemon->sock.eof; });
    static int losses;
    losses = 0;
    daemon->connection_lost = [](ubus_context *) { losses++; };
    EXPECT_EQ(_zu_send_event("network.inet_test", nullptr), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(losses, 0); // a reconnection under way is not disturbed
    zu_event_set_context(nullptr);
    EXPECT_EQ(_zu_send_event("network.inet_test", nullptr), UBUS_STATUS_CONNECTION_FAILED);
}

} // namespace
