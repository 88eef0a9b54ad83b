// Replays the clients' side of every recorded conversation against the broker: apart from the ids
// it draws, it must answer byte for byte.
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <unistd.h>

#include "../../host/libubus/wire.h"
#include "bus_testing.h"
#include "captures.h"
#include "support/hex.h"

namespace {

uint32_t word_at(const std::string &bytes, size_t at)
{
    uint32_t word;
    memcpy(&word, bytes.data() + at, sizeof(word));
    return be32_to_cpu(word);
}

class replay {
public:
    void play(const capture &c)
    {
        SCOPED_TRACE("conversation " + std::to_string(c.number) + ": " + c.title);
        prepare(c.number);
        for (const capture_step &step : c.steps)
            if (!::testing::Test::HasFailure())
                play(step);
        // A monitor would see the question.
        if (c.number == 33 || ::testing::Test::HasFailure())
            return;
        for (auto &[name, client] : clients)
            EXPECT_TRUE(client.nothing_waiting()) << name << " got more than was recorded";
    }

private:
    bus_broker broker;
    std::map<char, raw_client> clients;
    std::map<uint32_t, uint32_t> ids; // recorded -> drawn by our broker
    bool adding = false;              // the last request published an object

    std::string translate(std::string bytes) const
    {
        for (size_t at = 4; at + 4 <= bytes.size(); at += 4) {
            const auto found = ids.find(word_at(bytes, at));
            if (found == ids.end())
                continue;
            const uint32_t word = cpu_to_be32(found->second);
            memcpy(bytes.data() + at, &word, sizeof(word));
        }
        return bytes;
    }

    // Ids that our broker draws become known where a recorded message tells them first.
    void learn(const std::string &recorded, const std::string &got)
    {
        const uint8_t type = frame_type(recorded);
        if (type == UBUS_MSG_HELLO)
            ids[frame_peer(recorded)] = frame_peer(got);
        if (type == UBUS_MSG_DATA && adding)
            for (unsigned attr : {UBUS_ATTR_OBJID, UBUS_ATTR_OBJTYPE})
                if (const uint32_t id = frame_number(recorded, attr))
                    ids[id] = frame_number(got, attr);
        // The event about an object comes before its publication is answered, a monitor's copy of
        // a greeting before the greeting.
        if (type == UBUS_MSG_INVOKE && adding)
            ids[word_at(recorded, 56)] = word_at(got, 56);
        if (type == UBUS_MSG_MONITOR && word_at(recorded, 40) == UBUS_MSG_HELLO)
            ids[word_at(recorded, 16)] = word_at(got, 16);
    }

    void receive(const capture_step &step)
    {
        int fds = 0;
        const frame got = clients[step.connection].receive(PATIENCE_MS, &fds);
        ASSERT_EQ(got.size(), step.bytes.size())
            << step.connection << " expected " << to_hex(step.bytes) << "\ngot " << to_hex(got);
        learn(step.bytes, got);
        EXPECT_EQ(to_hex(got), to_hex(translate(step.bytes))) << "to " << step.connection;
        EXPECT_EQ(fds, step.has_fd ? 1 : 0);
    }

    void send(const capture_step &step)
    {
        adding = frame_type(step.bytes) == UBUS_MSG_ADD_OBJECT;
        int fd = step.has_fd ? open("/dev/null", O_RDONLY | O_CLOEXEC) : -1;
        EXPECT_TRUE(clients[step.connection].send(translate(step.bytes), fd));
        wire_close(&fd);
    }

    void play(const capture_step &step)
    {
        switch (step.what) {
        case capture_step::CONNECT:
            clients[step.connection].connect(broker.socket);
            return;
        case capture_step::CLOSED_BY_CLIENT:
            clients.erase(step.connection);
            return;
        case capture_step::CLOSED_BY_BROKER:
            EXPECT_TRUE(clients[step.connection].closed_by_peer());
            clients.erase(step.connection);
            return;
        case capture_step::TO_BROKER:
            send(step);
            return;
        case capture_step::TO_CLIENT:
            receive(step);
            return;
        }
    }

    // What happened between the recorded conversations.

    void reconnect(char name, uint32_t recorded_id)
    {
        clients.erase(name);
        clients[name] = raw_client(broker.socket);
        ids[recorded_id] = clients[name].id;
    }

    void listen(char name, uint32_t recorded_id, const char *pattern)
    {
        const uint32_t id = publish(clients[name], nullptr);
        ids[recorded_id] = id;
        EXPECT_EQ(clients[name].status_of(listen_frame(id, pattern)), 0);
    }

    void subscribe_again()
    {
        EXPECT_EQ(clients['W'].status_of(
                      objects_frame(UBUS_MSG_SUBSCRIBE, ids[0xf6e3bdb3], ids[0x67797a71])),
                  0);
        EXPECT_EQ(frame_seq(clients['S'].receive()), 3);
    }

    // K publishes an object with the methods of the first conversation.
    void publish_victim()
    {
        clients['K'] = raw_client(broker.socket);
        const std::string led = capture_of(2).steps[2].bytes;
        const std::string signature = frame_attribute(led, UBUS_ATTR_SIGNATURE);
        const std::vector<frame> replies =
            clients['K'].request(make_frame(UBUS_MSG_ADD_OBJECT, 1, 0, [&](blob_buf *b) {
                blob_put_string(b, UBUS_ATTR_OBJPATH, "demo.victim");
                blob_put(b, UBUS_ATTR_SIGNATURE, signature.data(), (unsigned)signature.size());
            }));
        ASSERT_EQ(replies.size(), 2u);
        ids[0x8a375f15] = frame_number(replies[0], UBUS_ATTR_OBJID);
        ids[0x3452d77f] = frame_number(replies[0], UBUS_ATTR_OBJTYPE);
    }

    void prepare(int number)
    {
        switch (number) {
        case 19:
            subscribe_again();
            break;
        case 24:
            listen('W', 0xadb5cf6e, "ubus.object.*");
            break;
        case 25:
            listen('W', 0x6d4b3e44, "ubus.object.add");
            break;
        case 26:
            clients.erase('W'); // it would hear of the new object
            reconnect('R', 0x6fe8cee2);
            publish_victim();
            break;
        case 31:
            reconnect('R', 0x0ee7b8ba);
            break;
        }
    }
};

} // namespace

// A conversation builds on the objects of those before it.
TEST(BrokerCaptures, BrokerAnswersAsRecorded)
{
    replay conversation;
    for (const capture &c : captures())
        if (!HasFailure())
            conversation.play(c);
}

TEST(Captures, AreComplete)
{
    size_t messages = 0;
    for (const capture &c : captures())
        for (const capture_step &step : c.steps)
            messages += !step.bytes.empty();
    EXPECT_EQ(captures().size(), 33u);
    EXPECT_EQ(messages, 186u);
}
