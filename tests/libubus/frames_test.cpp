// Frames at the limits and beyond: large, cut, malformed, in pieces. The broker closes or answers,
// and goes on serving everybody else.
#include <fcntl.h>
#include <gtest/gtest.h>
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

struct Frames : ::testing::Test {
    bus_broker broker;

    void TearDown() override
    {
        raw_client other(broker.socket);
        EXPECT_EQ(other.status_of(lookup_frame(1, nullptr)), 0) << "the broker is gone";
    }
};

} // namespace

TEST_F(Frames, OneMebibytePassesAndFourBytesMoreClose)
{
    raw_client client(broker.socket);
    for (const size_t len : {WIRE_MAX_BLOB, WIRE_MAX_BLOB + 4}) {
        const frame ping =
            raw_frame(UBUS_MSG_PING, 7,
                      attribute(UBUS_ATTR_DATA, (uint32_t)len - 4, std::string(len - 8, 'x')));
        if (len > WIRE_MAX_BLOB) {
            (void)client.send(ping); // may be cut short: the broker does not read on
            EXPECT_TRUE(client.closed_by_peer());
            continue;
        }
        const std::vector<frame> replies = client.request(ping);
        ASSERT_EQ(replies.size(), 2u);
        EXPECT_EQ(replies[0].substr(8), ping.substr(8));
    }
}

TEST_F(Frames, ImpossibleLengthsCloseWithoutAWord)
{
    for (const uint32_t root : {0u, 1u, 3u, 0x00ffffffu, 0x00100001u, 0x80000003u}) {
        raw_client client(broker.socket);
        const ubus_msghdr hdr = wire_header(UBUS_MSG_LOOKUP, 1, 0);
        ASSERT_TRUE(client.send(std::string((const char *)&hdr, sizeof(hdr)) + word(root)));
        EXPECT_TRUE(client.closed_by_peer()) << root;
    }
}

TEST_F(Frames, ClientMayLeaveInTheMiddleOfAnyMessage)
{
    raw_client owner(broker.socket);
    const uint32_t id = publish(owner, "cut");
    const frame whole = invoke_frame(1, id, "get");
    for (size_t len = 0; len <= whole.size(); len++) {
        raw_client client(broker.socket);
        ASSERT_TRUE(client.send(whole.substr(0, len)));
    }
    // Only the whole one was passed on.
    EXPECT_EQ(frame_type(owner.receive()), UBUS_MSG_INVOKE);
    EXPECT_TRUE(owner.nothing_waiting());
}

TEST_F(Frames, PiecesAndSeveralAtOnceAreTheSame)
{
    raw_client client(broker.socket);
    frame both = lookup_frame(1, nullptr) + lookup_frame(2, "nothing");
    ASSERT_TRUE(client.send(both));
    EXPECT_EQ(frame_status(client.receive()), 0);
    EXPECT_EQ(frame_status(client.receive()), UBUS_STATUS_NOT_FOUND);
    for (const char byte : both)
        ASSERT_TRUE(client.send(std::string(1, byte)));
    EXPECT_EQ(frame_status(client.receive()), 0);
    EXPECT_EQ(frame_status(client.receive()), UBUS_STATUS_NOT_FOUND);
}

// What does not parse is as if it were absent.
TEST_F(Frames, MalformedAttributesCountAsAbsent)
{
    raw_client client(broker.socket);
    const uint32_t id = publish(client, "here");
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
        {"event data that is none", UBUS_MSG_INVOKE,
         object_id(UBUS_SYSTEM_OBJECT_EVENT) +
             attribute(UBUS_ATTR_METHOD, 9, std::string("send\0\0\0\0", 8)) +
             attribute(UBUS_ATTR_DATA, 12, "\xff\xff\xff\xff\xff\xff\xff\xff"),
         UBUS_STATUS_INVALID_ARGUMENT},
        {"no such type", 200, object_id(id), UBUS_STATUS_INVALID_COMMAND},
    };
    for (const auto &c : CASES)
        EXPECT_EQ(client.status_of(raw_frame(c.type, 9, c.body)), c.status) << c.what;
}

TEST_F(Frames, MalformedSignatureMakesAnObjectThatIsNotListed)
{
    raw_client client(broker.socket);
    const std::string path = attribute(UBUS_ATTR_OBJPATH, 8, std::string("odd", 4));
    const std::string nameless = attribute(0x82, 8, word(0));
    for (const std::string &signature : {attribute(UBUS_ATTR_SIGNATURE, 12, nameless),
                                         attribute(UBUS_ATTR_OBJTYPE, 8, word(4711))}) {
        const std::vector<frame> added =
            client.request(raw_frame(UBUS_MSG_ADD_OBJECT, 1, path + signature));
        ASSERT_EQ(added.size(), 2u);
        EXPECT_EQ(frame_number(added[0], UBUS_ATTR_OBJTYPE), 0u);
        const std::vector<frame> found = client.request(lookup_frame(2, "odd"));
        ASSERT_EQ(found.size(), 1u) << "found, but without data";
        EXPECT_EQ(frame_status(found[0]), 0);
        const uint32_t id = frame_number(added[0], UBUS_ATTR_OBJID);
        EXPECT_EQ(client.status_of(raw_frame(UBUS_MSG_REMOVE_OBJECT, 3, object_id(id))), 0);
    }
}

TEST_F(Frames, DescriptorsThatGoNowhereAreClosed)
{
    raw_client owner(broker.socket), client(broker.socket);
    const uint32_t id = publish(owner, "fds");
    const std::string process = std::to_string(broker.process.pid);
    const long before = open_descriptors(process);
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    for (int i = 0; i < 20; i++) {
        ASSERT_TRUE(client.send(make_frame(UBUS_MSG_PING, 1, 0), fd));
        ASSERT_TRUE(client.send(invoke_frame(2, id, "get"), fd));
        ASSERT_TRUE(client.send(invoke_frame(3, 5000, "get"), fd));
        raw_client leaver(broker.socket);
        ASSERT_TRUE(leaver.send(make_frame(UBUS_MSG_PING, 4, 0).substr(0, 5), fd));
    }
    close(fd);
    int passed_on = 0;
    for (int i = 0; i < 20; i++)
        EXPECT_EQ(frame_type(owner.receive(PATIENCE_MS, &passed_on)), UBUS_MSG_INVOKE);
    EXPECT_EQ(passed_on, 20);
    EXPECT_TRUE(owner.nothing_waiting());
    EXPECT_TRUE(eventually([&] { return open_descriptors(process) == before; }));
}
