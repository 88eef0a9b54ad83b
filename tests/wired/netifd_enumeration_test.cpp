// Finding netifd's interfaces, and asking again those that do not answer: on a real bus, in virtual
// time.
#include "mesh/mesh.h"
#include "support/fake_interface.h"
#include "wired/bridges.h"
#include "wired/netifd/iface.h"
#include "wired/node_fixture.h"
#include "wired/wired.h"

namespace {

constexpr int SLACK = 200;
constexpr char WIRED0[] = "network.interface.wired0";
constexpr char GOOD[] =
    R"({"up":true,"device":"br-x","route":[)"
    R"({"target":"0.0.0.0","mask":0,"nexthop":"10.0.0.1","source":"10.0.0.7/32"}]})";

struct Enumeration : node_fixture {
    void SetUp() override
    {
        node_fixture::SetUp();
        gUbus_ctx = daemon;
        uloop_clock_virtual(true);
    }
    void TearDown() override
    {
        node_fixture::TearDown();
        gUbus_ctx = nullptr;
    }
    /// Lets that much time pass, then everything on the bus be answered, which takes less than
    /// SLACK.
    void pass(int ms)
    {
        uloop_clock_run_ms(ms);
        settle(); // the questions arrive,
        settle(); // and the answers
    }
    static std::string facts(list_head *list, const char *path)
    {
        const iface_entry *entry = iface_list_find(list, path);
        if (!entry)
            return "unknown";
        return std::string(entry->answered ? "answered " : "") + (entry->up ? "up " : "down ") +
               entry->device + " " + entry->address;
    }
};

} // namespace

TEST_F(Enumeration, EndsWhenEveryBridgeHasAnsweredAndAsksEachAgain)
{
    const struct {
        const char *what, *status;
        bool answers;
        int over_after_s, asked_by_then, asked_a_minute_later;
        const char *facts, *log;
    } cases[] = {
        {"answered", GOOD, true, 5, 1, 3, "answered up br-x 10.0.0.7", "set as wired upstream"},
        {"down and not named", R"({"up":false})", true, 5, 1, 3, "answered down  ", "'device'"},
        {"without data", "", true, 5, 1, 3, "down  ", "failed to generate status data"},
        {"garbled", R"({"up":"yes"})", true, 5, 1, 3, "down  ", "missing the 'up' member"},
        {"up and not named", R"({"up":true})", true, 10, 1, 3, "up  ", "missing the 'device'"},
        {"silent", GOOD, false, 10, 2, 4, "down  ", "failed to respond to status, aborting"},
    };
    for (const bool mesh : {false, true}) {
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(mesh ? "mesh " : "wired ") + c.what);
            TearDown();
            SetUp();
            const char *path = mesh ? "network.interface.mesh_rp" : WIRED0;
            fake_interface netifd(stranger, path, c.status);
            netifd.answers = c.answers;
            iface_enumeration *enumeration = &gTarn_net_state.bridges;
            if (mesh)
                enumeration = &gTarn_net_state.mesh;
            const auto *timer = &enumeration->enumerate_timer;
            const auto start = mesh ? init_mesh_info : init_bridge_info;

            start();
            pass(5000 - SLACK);
            start(); // changes nothing
            EXPECT_EQ(netifd.asked, 0);
            pass(SLACK);
            EXPECT_EQ(netifd.asked, 1);
            EXPECT_EQ(timer->pending, mesh || c.over_after_s == 10);
            if (timer->pending)
                start();
            pass(5000 - SLACK - SLACK);
            EXPECT_EQ(timer->pending, mesh || c.over_after_s == 10);
            pass(SLACK);
            EXPECT_FALSE(timer->pending);
            EXPECT_EQ(facts(&enumeration->list, path), c.facts);
            EXPECT_EQ(netifd.asked, c.asked_by_then);
            for (int i = 0; i < 6; i++)
                pass(10000);
            EXPECT_EQ(netifd.asked, c.asked_a_minute_later);
            EXPECT_EQ(logged(c.log) > 0, !mesh || c.log[0] != 's');

            // What answers at last is taken, though nothing was notified.
            netifd.answers = true;
            netifd.status = GOOD;
            for (int i = 0; i < 3; i++)
                pass(10000);
            EXPECT_EQ(netifd.asked, c.asked_a_minute_later + 1);
            EXPECT_EQ(facts(&enumeration->list, path), "answered up br-x 10.0.0.7");
            // So is the end of what had answered.
            netifd.status = R"({"up":false,"device":"br-x"})";
            for (int i = 0; i < 3; i++)
                pass(10000);
            EXPECT_EQ(netifd.asked, c.asked_a_minute_later + 2);
            EXPECT_EQ(facts(&enumeration->list, path), "answered down br-x ");
            EXPECT_TRUE(logged(std::string(path) + "' is down, its notification did not come"));
        }
    }
}

TEST_F(Enumeration, LateAnswerIsTaken)
{
    fake_interface netifd(stranger, WIRED0, GOOD);
    netifd.answers = false;
    enumerate_bridges_add_new(daemon, WIRED0, netifd.id);
    settle();
    pass(6000); // without an enumeration the entry's own limit ends the call
    EXPECT_TRUE(logged("failed to respond to status, aborting ubus invoke"));
    pass(29000);
    EXPECT_EQ(facts(&gTarn_net_state.bridges.list, WIRED0), "down  ");
    netifd.answer_open();
    settle();
    EXPECT_EQ(facts(&gTarn_net_state.bridges.list, WIRED0), "answered up br-x 10.0.0.7");
    const auto checkin = [] {
        json_message section;
        EXPECT_EQ(gen_checkin_wired_section(nullptr, nullptr, &section), 0);
        return std::string(zu_text(blobmsg_format_json(section.head, true)).get());
    };
    EXPECT_EQ(checkin(), R"({"maint_ip":"10.0.0.7"})");
    EXPECT_FALSE(gTarn_net_state.bridges.enumerate_timer.pending);

    // What is removed takes timer and question with it.
    pass(30000);
    EXPECT_EQ(netifd.asked, 3);
    EXPECT_EQ(facts(&gTarn_net_state.bridges.list, WIRED0), "up br-x 10.0.0.7") << "not yet";
    enumerate_bridges_remove(WIRED0);
    netifd.answer_open();
    pass(60000);
    EXPECT_EQ(netifd.asked, 3);
    EXPECT_EQ(checkin(), "{}");
    EXPECT_TRUE(gTarn_net_state.bridges.enumerate_timer.pending) << "it is looked for";
}

TEST_F(Enumeration, PathUnderANewIdIsFollowedAnew)
{
    std::optional<fake_interface> netifd;
    netifd.emplace(stranger, WIRED0, R"({"up":false,"device":"br-x"})");
    init_bridge_info(); // which no answer ends before the bus has been searched
    enumerate_bridges_add_new(daemon, WIRED0, netifd->id);
    settle();
    netifd.reset();
    netifd.emplace(stranger, WIRED0, R"({"up":false,"device":"br-y"})");
    pass(5000);
    EXPECT_EQ(facts(&gTarn_net_state.bridges.list, WIRED0), "answered down br-y ");
    netifd->notify(GOOD);
    settle();
    EXPECT_STREQ(upstream().wired_uplink_bridge, "br-x");
    EXPECT_EQ(gTarn_net_state.bridges.list.next->next, &gTarn_net_state.bridges.list)
        << "the old one is gone";
    // Found again by the next enumeration, a known one is asked and not subscribed to twice.
    upstream().wired_uplink_bridge[0] = '\0';
    const int asked = netifd->asked;
    init_bridge_info();
    pass(5000);
    EXPECT_EQ(netifd->asked, asked + 1);
}
