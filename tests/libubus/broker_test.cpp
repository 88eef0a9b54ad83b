// The broker's duties towards clients that misbehave, wait or die, and its refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <set>

#include "../../host/libubus/wire.h"
#include "bus_testing.h"

namespace {

struct Broker : ::testing::Test {
    bus_broker broker;
    raw_client a{broker.socket}, b{broker.socket};
};

} // namespace

TEST_F(Broker, RefusesWithTheRightStatus)
{
    const uint32_t mine = publish(a, "mine"), twin = publish(a, "twin"),
                   other = publish(b, "other");
    constexpr uint32_t UNKNOWN = 0xffffff00;
    const struct {
        const char *what;
        frame request;
        int status;
    } CASES[] = {
        {"path taken", add_object_frame(1, "other"), UBUS_STATUS_INVALID_ARGUMENT},
        {"remove nothing", objects_frame(UBUS_MSG_REMOVE_OBJECT, 0), UBUS_STATUS_INVALID_ARGUMENT},
        {"remove unknown", objects_frame(UBUS_MSG_REMOVE_OBJECT, UNKNOWN), UBUS_STATUS_NOT_FOUND},
        {"remove another's", objects_frame(UBUS_MSG_REMOVE_OBJECT, other),
         UBUS_STATUS_PERMISSION_DENIED},
        {"call unknown", invoke_frame(1, UNKNOWN, "get"), UBUS_STATUS_NOT_FOUND},
        {"call unused system object", invoke_frame(1, 77, "get"), UBUS_STATUS_NOT_FOUND},
        {"subscribe without target", objects_frame(UBUS_MSG_SUBSCRIBE, mine),
         UBUS_STATUS_INVALID_ARGUMENT},
        {"subscribe by unknown", objects_frame(UBUS_MSG_SUBSCRIBE, UNKNOWN, other),
         UBUS_STATUS_NOT_FOUND},
        {"subscribe by another's", objects_frame(UBUS_MSG_SUBSCRIBE, other, mine),
         UBUS_STATUS_INVALID_ARGUMENT},
        {"subscribe to unknown", objects_frame(UBUS_MSG_SUBSCRIBE, mine, UNKNOWN),
         UBUS_STATUS_NOT_FOUND},
        {"subscribe to system", objects_frame(UBUS_MSG_SUBSCRIBE, mine, 1), UBUS_STATUS_NOT_FOUND},
        {"subscribe to own", objects_frame(UBUS_MSG_SUBSCRIBE, mine, twin),
         UBUS_STATUS_INVALID_ARGUMENT},
        {"unsubscribe none", objects_frame(UBUS_MSG_UNSUBSCRIBE, mine, other),
         UBUS_STATUS_NOT_FOUND},
        {"notify without type", notify_frame(mine, nullptr), UBUS_STATUS_INVALID_ARGUMENT},
        {"notify unknown", notify_frame(UNKNOWN, "x"), UBUS_STATUS_NOT_FOUND},
        {"notify for another's", notify_frame(other, "x"), UBUS_STATUS_PERMISSION_DENIED},
        {"listen without pattern", listen_frame(mine, nullptr), UBUS_STATUS_INVALID_ARGUMENT},
        {"listen without object", listen_frame(0, "x"), UBUS_STATUS_INVALID_ARGUMENT},
        {"listen by system", listen_frame(1, "x"), UBUS_STATUS_PERMISSION_DENIED},
        {"listen by unknown", listen_frame(UNKNOWN, "x"), UBUS_STATUS_NOT_FOUND},
        {"listen by another's", listen_frame(other, "x"), UBUS_STATUS_PERMISSION_DENIED},
        {"listen to nothing", listen_frame(mine, ""), UBUS_STATUS_PERMISSION_DENIED},
        {"reserved event", event_frame("ubus.object.add"), UBUS_STATUS_PERMISSION_DENIED},
        {"event without id", event_frame(nullptr), UBUS_STATUS_INVALID_ARGUMENT},
        {"event object's other methods", invoke_frame(1, UBUS_SYSTEM_OBJECT_EVENT, "x"),
         UBUS_STATUS_INVALID_COMMAND},
        {"monitor's other methods", invoke_frame(1, UBUS_SYSTEM_OBJECT_MONITOR, "x"),
         UBUS_STATUS_METHOD_NOT_FOUND},
    };
    for (const auto &c : CASES)
        EXPECT_EQ(a.status_of(c.request), c.status) << c.what;
    EXPECT_TRUE(b.nothing_waiting());
}

TEST_F(Broker, EventsReachEachListenerOnceAndNeverTheSender)
{
    const uint32_t own = publish(a, nullptr), listener = publish(b, nullptr);
    EXPECT_EQ(a.status_of(listen_frame(own, "*")), 0);
    for (const char *pattern : {"net.*", "net.up", "net.up", "*"})
        EXPECT_EQ(b.status_of(listen_frame(listener, pattern)), 0);
    EXPECT_EQ(a.request(event_frame("net.up")).size(), 1u) << "only the status";
    EXPECT_EQ(frame_attribute(b.receive(), UBUS_ATTR_METHOD), std::string("net.up", 7));
    EXPECT_TRUE(b.nothing_waiting());
    EXPECT_TRUE(a.nothing_waiting());

    raw_client c(broker.socket);
    const uint32_t picky = publish(c, nullptr);
    EXPECT_EQ(c.status_of(listen_frame(picky, "net.*")), 0);
    for (const char *id : {"net", "ne", "network", "Net.up"})
        EXPECT_EQ(a.status_of(event_frame(id)), 0);
    EXPECT_TRUE(c.nothing_waiting());
    EXPECT_EQ(a.status_of(event_frame("net.")), 0);
    EXPECT_EQ(frame_type(c.receive()), UBUS_MSG_INVOKE);
    // Patterns end with their object.
    EXPECT_EQ(c.status_of(objects_frame(UBUS_MSG_REMOVE_OBJECT, picky)), 0);
    EXPECT_EQ(a.status_of(event_frame("net.up")), 0);
    EXPECT_TRUE(c.nothing_waiting());
}

TEST_F(Broker, SubscriptionsAreCountedThroughDeaths)
{
    const uint32_t target = publish(a, "target"), subscriber = publish(b, nullptr);
    EXPECT_EQ(b.status_of(objects_frame(UBUS_MSG_SUBSCRIBE, subscriber, target)), 0);
    EXPECT_EQ(b.status_of(objects_frame(UBUS_MSG_SUBSCRIBE, subscriber, target)), 0);
    EXPECT_EQ(frame_attribute(a.receive(), UBUS_ATTR_ACTIVE), "\1");
    EXPECT_TRUE(a.nothing_waiting()) << "only the first subscriber is told";

    EXPECT_EQ(a.status_of(notify_frame(target, "n")), 0);
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(frame_number(b.receive(), UBUS_ATTR_OBJID), subscriber);
    EXPECT_EQ(b.status_of(objects_frame(UBUS_MSG_UNSUBSCRIBE, subscriber, target)), 0);
    EXPECT_TRUE(a.nothing_waiting()) << "one is left";

    b.disconnect();
    EXPECT_EQ(frame_attribute(a.receive(), UBUS_ATTR_ACTIVE), std::string(1, 0));
    EXPECT_EQ(a.status_of(notify_frame(target, "n")), 0);
    EXPECT_TRUE(a.nothing_waiting());
}

TEST_F(Broker, DeathsLeavePendingCallsUnanswered)
{
    const uint32_t id = publish(a, "owner");
    ASSERT_TRUE(b.send(invoke_frame(3, id, "get")));
    EXPECT_EQ(frame_peer(a.receive()), b.id);
    a.disconnect();
    EXPECT_TRUE(eventually(
        [this] { return b.status_of(lookup_frame(4, "owner")) == UBUS_STATUS_NOT_FOUND; }));
    EXPECT_TRUE(b.nothing_waiting()) << "nothing tells the caller";

    // And the other way round: replies to the dead go nowhere.
    const uint32_t own = publish(b, "owner");
    uint32_t caller;
    {
        raw_client dying(broker.socket);
        caller = dying.id;
        ASSERT_TRUE(dying.send(invoke_frame(1, own, "get")));
        EXPECT_EQ(frame_type(b.receive()), UBUS_MSG_INVOKE);
    }
    ASSERT_TRUE(b.send(status_frame(1, caller, 0, own)));
    EXPECT_TRUE(b.nothing_waiting());
}

TEST_F(Broker, OnlyTheOwnerAnswersForAnObject)
{
    const uint32_t id = publish(a, "owner");
    raw_client forger(broker.socket);
    ASSERT_TRUE(forger.send(status_frame(3, b.id, 0, id)));
    ASSERT_TRUE(forger.send(status_frame(3, b.id, 0, 0xffffff00)));
    EXPECT_TRUE(forger.nothing_waiting());
    EXPECT_TRUE(b.nothing_waiting());
    ASSERT_TRUE(a.send(status_frame(3, b.id, 0, id)));
    EXPECT_EQ(frame_peer(b.receive()), id);
}

TEST_F(Broker, DropsWhatAStuckClientHasNoRoomForAndGoesOnAfterwards)
{
    const uint32_t listener = publish(b, nullptr);
    EXPECT_EQ(b.status_of(listen_frame(listener, "*")), 0);
    constexpr int EVENTS = 400;
    const std::string padding(8192, 'x');
    for (int round = 0; round < 3; round++) {
        for (int i = 0; i < EVENTS; i++)
            ASSERT_EQ(a.status_of(event_frame(std::to_string(i).c_str(), padding)), 0);
        // There is room for the short answer to a ping, which comes last.
        ASSERT_TRUE(b.send(make_frame(UBUS_MSG_PING, 99, 0)));
        int arrived = 0;
        for (frame f; frame_type(f = b.receive()) == UBUS_MSG_INVOKE; arrived++)
            EXPECT_STREQ(frame_attribute(f, UBUS_ATTR_METHOD).c_str(),
                         std::to_string(arrived).c_str())
                << "what arrives is the beginning, without holes";
        EXPECT_GT(arrived, 128) << "1 MiB waits in the broker";
        EXPECT_LT(arrived, 300) << "not more";
        EXPECT_EQ(frame_status(b.receive()), 0);
    }
}

TEST_F(Broker, WhatWasSentBeforeAHangUpCounts)
{
    constexpr int EVENTS = 300;
    const uint32_t listener = publish(b, nullptr);
    EXPECT_EQ(b.status_of(listen_frame(listener, "*")), 0);
    std::string all;
    for (int i = 0; i < EVENTS; i++)
        all += event_frame("bye");
    broker.process.signal(SIGSTOP); // it finds both at once
    ASSERT_TRUE(a.send(all));
    a.disconnect();
    broker.process.signal(SIGCONT);
    for (int i = 0; i < EVENTS; i++)
        ASSERT_EQ(frame_type(b.receive()), UBUS_MSG_INVOKE) << i;
}

TEST_F(Broker, ListsTenThousandObjectsToASlowReaderInOrder)
{
    constexpr int OBJECTS = 10000;
    std::set<uint32_t> ids;
    char path[16];
    for (int i = 0; i < OBJECTS; i++) {
        snprintf(path, sizeof(path), "object%05d", (i * 7919) % OBJECTS);
        ids.insert(publish(a, path));
    }
    EXPECT_EQ(ids.size(), (size_t)OBJECTS);
    EXPECT_GE(*ids.begin(), (uint32_t)UBUS_SYSTEM_OBJECT_MAX);

    // Two listings at once, unread while another client is served and an object goes away.
    ASSERT_TRUE(b.send(lookup_frame(1, nullptr) + lookup_frame(2, nullptr)));
    EXPECT_EQ(a.status_of(objects_frame(UBUS_MSG_REMOVE_OBJECT, *ids.begin())), 0);
    for (uint16_t seq = 1; seq <= 2; seq++) {
        std::vector<std::string> paths;
        frame f;
        while (frame_type(f = b.receive()) == UBUS_MSG_DATA) {
            EXPECT_EQ(frame_seq(f), seq);
            paths.push_back(frame_attribute(f, UBUS_ATTR_OBJPATH));
        }
        EXPECT_EQ(frame_status(f), 0);
        EXPECT_GE(paths.size(), (size_t)OBJECTS - 1);
        EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end(), std::less_equal<>()))
            << "in order and none twice";
    }
    a.disconnect();
    EXPECT_TRUE(
        eventually([this] { return b.status_of(lookup_frame(3, "*")) == UBUS_STATUS_NOT_FOUND; }));
}

TEST_F(Broker, ManyClientsComeAndGo)
{
    for (int round = 0; round < 5; round++) {
        std::vector<raw_client> crowd;
        for (int i = 0; i < 60; i++) {
            crowd.emplace_back(broker.socket);
            const std::string path = "crowd" + std::to_string(i);
            EXPECT_TRUE(eventually([&] { return publish(crowd.back(), path.c_str()) != 0; }));
        }
        EXPECT_EQ(a.request(lookup_frame(1, "crowd*")).size(), 61u);
    }
    EXPECT_TRUE(eventually(
        [this] { return a.status_of(lookup_frame(1, "crowd*")) == UBUS_STATUS_NOT_FOUND; }));
}
