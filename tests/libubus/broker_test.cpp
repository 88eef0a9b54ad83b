// The broker's duties towards clients that misbehave, wait or die, its refusals, and frames at the
// limits and beyond.
#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

#include "../../host/libubus/wire.h"
#include "bus_testing.h"
#include "support/open_descriptors.h"

namespace {

std::string word(uint32_t value)
{
    value = cpu_to_be32(value);
    return {(const char *)&value, sizeof(value)};
}

// An attribute as given, right or wrong: nothing is padded or checked.
std::string attribute(unsigned id, uint32_t raw_len, const std::string &payload)
{
    return word(id << 24 | raw_len) + payload;
}

frame raw_frame(uint8_t type, uint16_t seq, const std::string &body)
{
    const ubus_msghdr hdr = wire_header(type, seq, 0);
    return frame((const char *)&hdr, sizeof(hdr)) + word((uint32_t)body.size() + 4) + body;
}

std::string object_id(uint32_t id)
{
    return attribute(UBUS_ATTR_OBJID, 8, word(id));
}

struct Broker : ::testing::Test {
    bus_broker broker;
    raw_client a{broker.socket}, b{broker.socket};

    void TearDown() override
    {
        raw_client other(broker.socket);
        EXPECT_EQ(other.status_of(lookup_frame(1, nullptr)), 0) << "the broker is gone";
    }
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

TEST_F(Broker, OneMebibytePassesAndImpossibleLengthsCloseWithoutAWord)
{
    const auto ping = [](size_t len) {
        return raw_frame(UBUS_MSG_PING, 7,
                         attribute(UBUS_ATTR_DATA, (uint32_t)len - 4, std::string(len - 8, 'x')));
    };
    const std::vector<frame> replies = a.request(ping(WIRE_MAX_BLOB));
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[0].substr(8), ping(WIRE_MAX_BLOB).substr(8));
    (void)b.send(ping(WIRE_MAX_BLOB + 4)); // may be cut short: the broker does not read on
    EXPECT_TRUE(b.closed_by_peer());
    for (const uint32_t root : {0u, 1u, 3u, 0x00ffffffu, 0x00100001u, 0x80000003u}) {
        raw_client client(broker.socket);
        const ubus_msghdr hdr = wire_header(UBUS_MSG_LOOKUP, 1, 0);
        ASSERT_TRUE(client.send(std::string((const char *)&hdr, sizeof(hdr)) + word(root)));
        EXPECT_TRUE(client.closed_by_peer()) << root;
    }
}

TEST_F(Broker, PiecesAndSeveralAtOnceAreTheSame)
{
    const frame both = lookup_frame(1, nullptr) + lookup_frame(2, "nothing");
    for (const size_t piece : {both.size(), size_t{1}}) {
        for (size_t at = 0; at < both.size(); at += piece)
            ASSERT_TRUE(a.send(both.substr(at, piece)));
        EXPECT_EQ(frame_status(a.receive()), 0);
        EXPECT_EQ(frame_status(a.receive()), UBUS_STATUS_NOT_FOUND);
    }
}

// What does not parse is as if it were absent.
TEST_F(Broker, MalformedAttributesCountAsAbsent)
{
    const uint32_t id = publish(a, "here");
    const std::string method = attribute(UBUS_ATTR_METHOD, 8, std::string("get", 4));
    const struct {
        const char *what;
        uint8_t type;
        std::string body;
        int status;
    } CASES[] = {
        {"no attributes", UBUS_MSG_INVOKE, "", UBUS_STATUS_INVALID_ARGUMENT},
        {"short id", UBUS_MSG_INVOKE, attribute(UBUS_ATTR_OBJID, 7, word(id)) + method,
         UBUS_STATUS_INVALID_ARGUMENT},
        {"long id", UBUS_MSG_INVOKE, attribute(UBUS_ATTR_OBJID, 12, word(0) + word(id)) + method,
         UBUS_STATUS_INVALID_ARGUMENT},
        {"text without an end", UBUS_MSG_INVOKE,
         object_id(id) + attribute(UBUS_ATTR_METHOD, 8, "gets"), UBUS_STATUS_INVALID_ARGUMENT},
        {"text without a byte", UBUS_MSG_INVOKE, object_id(id) + attribute(UBUS_ATTR_METHOD, 4, ""),
         UBUS_STATUS_INVALID_ARGUMENT},
        {"length 0 ends the list", UBUS_MSG_INVOKE, word(0) + object_id(id) + method,
         UBUS_STATUS_INVALID_ARGUMENT},
        {"past the end", UBUS_MSG_LOOKUP,
         attribute(UBUS_ATTR_OBJPATH, 4000, std::string("nothing", 8)), UBUS_STATUS_OK},
        {"unpadded at the end", UBUS_MSG_LOOKUP,
         attribute(UBUS_ATTR_OBJPATH, 9, std::string("none", 5)), UBUS_STATUS_OK},
        {"unknown attribute", UBUS_MSG_LOOKUP, attribute(99, 8, word(1)), UBUS_STATUS_OK},
        {"the last of two", UBUS_MSG_LOOKUP,
         attribute(UBUS_ATTR_OBJPATH, 8, std::string("abc", 4)) +
             attribute(UBUS_ATTR_OBJPATH, 9, std::string("here\0\0\0\0", 8)),
         UBUS_STATUS_OK},
        {"empty path", UBUS_MSG_LOOKUP, attribute(UBUS_ATTR_OBJPATH, 5, std::string(4, 0)),
         UBUS_STATUS_INVALID_ARGUMENT},
        {"event data that holds no attribute", UBUS_MSG_INVOKE,
         object_id(UBUS_SYSTEM_OBJECT_EVENT) +
             attribute(UBUS_ATTR_METHOD, 9, std::string("send\0\0\0\0", 8)) +
             attribute(UBUS_ATTR_DATA, 12, "\xff\xff\xff\xff\xff\xff\xff\xff"),
         UBUS_STATUS_INVALID_ARGUMENT},
        {"no such type", 200, object_id(id), UBUS_STATUS_INVALID_COMMAND},
    };
    for (const auto &c : CASES)
        EXPECT_EQ(a.status_of(raw_frame(c.type, 9, c.body)), c.status) << c.what;
}
