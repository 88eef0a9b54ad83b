// The bus goes away and comes back, often and at awkward moments: everything of the daemon is on it
// once again, exactly once, and nothing is left over.
#include "core/daemon_fixture.h"
#include "support/eventually.h"

namespace {

constexpr char WIRED0[] = "network.interface.wired0";
constexpr char STATUS[] =
    R"({"up":true,"device":"br-wired0","route":[{"target":"0.0.0.0","mask":0,)"
    R"("nexthop":"10.0.0.1","source":"10.0.0.7/24"}]})";

struct Reconnect : daemon_fixture {
    std::unique_ptr<fake_interface> wired;

    void SetUp() override
    {
        daemon_fixture::SetUp();
        EXPECT_EQ(
            call("qnet.wired", "parse_config", R"({"params":{"inet_test":{"test_interval":3600}}})")
                .status,
            0);
        wired = std::make_unique<fake_interface>(daemon, WIRED0, STATUS);
        run_until([&] { return follows(WIRED0) == 1; });
    }
    void TearDown() override
    {
        wired.reset();
        daemon_fixture::TearDown();
    }
    void bus_restart()
    {
        const int connections = has_connected();
        broker_stop();
        broker_start();
        wired->id = 0;
        reconnect();
        wired = std::make_unique<fake_interface>(daemon, WIRED0, STATUS);
        wait_for_daemon(connections);
        run_until([&] { return follows(WIRED0) == 1 && wired->asked > 0; });
        settle();
    }
    bool hears_one_notification_once()
    {
        const char *line = "br-wired0' set as wired upstream link";
        const int notified = logged(line);
        const int asked = wired->asked;
        wired->notify(STATUS);
        run_until([&] { return logged(line) > notified; });
        settle();
        return logged(line) == notified + 1 + wired->asked - asked;
    }
    /// How often one event of each pattern is heard, and one notification.
    void expect_everything_once()
    {
        EXPECT_EQ(run("ubus list 'qnet.*'").output, "qnet.wifi\nqnet.wired\n");
        EXPECT_EQ(follows(WIRED0), 1);
        const int heard = logged("parse_config status event didn't contain success flag");
        send_event("parse_config_status", R"({"other":1})");
        settle();
        run_until([&] {
            return logged("parse_config status event didn't contain success flag") > heard;
        });
        EXPECT_EQ(logged("parse_config status event didn't contain success flag"), heard + 1);
        // A status answer that is still on its way says the same; it does not come three times.
        bool heard_once = false;
        for (int attempt = 0; attempt < 3 && !heard_once; attempt++)
            heard_once = hears_one_notification_once();
        EXPECT_TRUE(heard_once);
        const int added = logged("New interface 'network.interface.orph_conn1'");
        fake_interface other(daemon, "network.interface.orph_conn1", STATUS);
        run_until([&] { return follows("network.interface.orph_conn1") == 1; });
        EXPECT_EQ(logged("New interface 'network.interface.orph_conn1'"), added + 1);
        other.leave();
        run_until([&] { return follows("network.interface.orph_conn1") == 0; });
        const int registered = logged("Registered for LLDP negotiation notifications");
        const fake_interface lldp(daemon, "qnet.lldp", "{}");
        run_until(
            [&] { return logged("Registered for LLDP negotiation notifications") > registered; });
    }
};

} // namespace

TEST_F(Reconnect, ManyTimesInARow)
{
    const int files = open_files();
    for (int times = 1; times <= 6; times++) {
        SCOPED_TRACE(times);
        bus_restart();
        expect_everything_once();
        // Two of the ten places in the package table go at each connection, the first one included.
        EXPECT_EQ(logged("Unable to register handlers, too many handlers already registered in "
                         "this package"),
                  std::max(0, 2 * (times - 4)));
        EXPECT_EQ(call("qnet.wifi", "reload_config").status, 0) << "its package is still found";
        EXPECT_EQ(open_files(), files);
    }
}

TEST_F(Reconnect, AtAwkwardMoments)
{
    fake_interface gone(daemon, "network.interface.mesh_rp", STATUS); // which does not come back
    run_until([&] { return follows(gone.path) == 1; });
    gone.id = 0;
    wired->answers = false; // with a question pending
    wired->leave();
    EXPECT_EQ(ubus_add_object(daemon, wired.get()), 0);
    const int asked = wired->asked;
    run_until([&] { return wired->asked > asked; });
    bus_restart();
    EXPECT_EQ(follows(gone.path), 0);
    expect_everything_once();

    // While the daemon puts itself back on the bus.
    for (int wait_ms : {0, 10, 100}) {
        SCOPED_TRACE(wait_ms);
        broker_stop();
        const int connections = has_connected();
        broker_start();
        eventually([&] { return has_connected() > connections; });
        usleep(wait_ms * 1000);
        bus_restart();
        expect_everything_once();
    }

    // And when there is no bus at its start.
    const int connections = has_connected();
    tarn_net.reset();
    wired->id = 0;
    broker_stop();
    run("rm -f /var/run/ubus/ubus.sock");
    tarn_net.emplace(std::vector<std::string>{"tarn_net"});
    usleep(1200000); // longer than its first attempts
    broker_start();
    reconnect();
    wired = std::make_unique<fake_interface>(daemon, WIRED0, STATUS);
    wait_for_daemon(connections);
    run_until([&] { return follows(WIRED0) == 1 && wired->asked > 0; });
    expect_everything_once();
}
