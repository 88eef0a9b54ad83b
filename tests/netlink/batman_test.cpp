// The neighbour query of batman-adv: captured dumps, answers that break off, and the socket's life.
#include <cstring>
#include <netlink/msg.h>

#include "netlink/batman.h"
#include "netlink/batman_internal.h"
#include "netlink/netlink_fixture.h"
#include "netlink/nl_handle.h"

constexpr uint8_t GET_NEIGHBORS = 9;
constexpr uint16_t NEIGH_ADDRESS = 24, HARD_IFNAME = 7, ACTIVE = 15, BLA_CRC = 34;

static const bytes MAC = {2, 0, 0, 0, 0, 1};

static bytes neighbor(const bytes &attributes, uint8_t command = GET_NEIGHBORS)
{
    return generic_message(scripted_kernel::FAMILY, command, attributes);
}

class BatmanQuery : public netlink_fixture {
protected:
    void SetUp() override
    {
        netlink_fixture::SetUp();
        kernel.interfaces = {{"bat0", 4}};
    }
    void TearDown() override
    {
        bat_nlsock_close();
        netlink_fixture::TearDown();
    }

    uint32_t neighbors_of(const std::vector<bytes> &datagrams)
    {
        kernel.answers.clear();
        kernel.answer(datagrams);
        return bat_check_neighbors();
    }

    /// Captured datagrams as answers to a request of this program: lines first to last.
    std::vector<bytes> captured(const char *file, size_t first, size_t last)
    {
        std::vector<bytes> all = read_hex_file(file);
        std::vector<bytes> out(all.begin() + (long)first, all.begin() + (long)last + 1);
        for (bytes &datagram : out) {
            for (size_t at = 0; at < datagram.size();) {
                uint32_t length;
                memcpy(&length, datagram.data() + at, sizeof length);
                memset(datagram.data() + at + 8, 0, 8);
                at += NLMSG_ALIGN(length);
            }
        }
        return out;
    }
};

TEST_F(BatmanQuery, CapturedDumpsAreCounted)
{
    for (const char *file : {"batman-iv-neighbors.hex", "batman-v-neighbors.hex"}) {
        SCOPED_TRACE(file);
        EXPECT_EQ(neighbors_of(captured(file, 0, 1)), 2u);
        EXPECT_EQ(neighbors_of(captured(file, 2, 3)), 1u);
        EXPECT_EQ(log.take(), (lines{"DEBUG Got 2 neighbors on BATMAN iface",
                                     "DEBUG Got 1 neighbors on BATMAN iface"}));
        // Not a mesh: the kernel hides its error in the end of the dump.
        EXPECT_EQ(neighbors_of(captured(file, 4, 4)), 0u);
        EXPECT_EQ(log.take(), (lines{"ERROR Got error: No such device",
                                     "DEBUG Got 0 neighbors on BATMAN iface"}));
    }
    // length, family 0x21, dump with acknowledgement; command 9, version 1; bat0 is interface 4
    ASSERT_FALSE(kernel.requests.empty());
    bytes request = kernel.requests.back();
    std::fill(request.begin() + 8, request.begin() + 16, 0);
    EXPECT_EQ(request,
              generic_hex("1c000000 2100 0503 00000000 00000000 09010000 0800 0300 04000000"));
}

TEST_F(BatmanQuery, OnlyWholeNeighborsAreCounted)
{
    const bytes address = attr(NEIGH_ADDRESS, MAC);
    const std::string nameless = "ERROR Netlink message didn't include neighbor address",
                      odd = "ERROR Got unknown attributes from kernel.";
    const auto with = [&](const bytes &more) { return neighbor(join({address, more})); };
    const struct {
        const char *what;
        bytes message;
        std::string error; // none: counted
    } cases[] = {
        {"a plain one", neighbor(address), ""},
        {"no address", neighbor(attr_u32(23, 5)), nameless},
        {"no attributes", neighbor({}), nameless},
        {"a short address", neighbor(attr(NEIGH_ADDRESS, bytes(5))), odd},
        {"a name without its end", with(attr(HARD_IFNAME, bytes(8, 'a'))), odd},
        {"a name of 17 bytes", with(attr_text(HARD_IFNAME, "0123456789abcdef")), odd},
        {"a name of 16 bytes", with(attr_text(HARD_IFNAME, "0123456789abcde")), ""},
        {"half a number", with(attr(BLA_CRC, bytes(1))), odd},
        {"a flag", with(attr(ACTIVE, {})), ""},
        {"attributes of a newer kernel", with(join({attr(60, {}), attr(200, MAC)})), ""},
        {"no room for the generic header", message(scripted_kernel::FAMILY, NLM_F_MULTI, bytes(3)),
         "ERROR Got invalid data from kernel."},
    };
    const auto counted = [](int count) {
        return "DEBUG Got " + std::to_string(count) + " neighbors on BATMAN iface";
    };
    EXPECT_EQ(neighbors_of({neighbor(address, 8), done_message(0)}), 0u) << "another command's";
    EXPECT_EQ(log.take(), lines{counted(0)});
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const bool good = c.error.empty();
        EXPECT_EQ(neighbors_of({c.message, done_message(0)}), good ? 1u : 0u);
        EXPECT_EQ(log.take(), good ? lines{counted(1)} : (lines{c.error, counted(0)}));
    }
    // A dump of many datagrams, marked as interrupted in the middle: what was told counts.
    std::vector<bytes> many(64, neighbor(attr(NEIGH_ADDRESS, MAC)));
    many[30] = generic_message(scripted_kernel::FAMILY, GET_NEIGHBORS, attr(NEIGH_ADDRESS, MAC),
                               NLM_F_MULTI | NLM_F_DUMP_INTR);
    many.push_back(done_message(0));
    EXPECT_EQ(neighbors_of(many), 64u);
    EXPECT_NE(gBat_neighbor_query.socket, nullptr);
}

TEST_F(BatmanQuery, TheSocketIsKeptUntilClosed)
{
    const long before = open_descriptors();
    bat_nlsock_close();
    EXPECT_EQ(neighbors_of({done_message(0)}), 0u);
    nl_sock *socket = gBat_neighbor_query.socket;
    EXPECT_EQ(gBat_neighbor_query.family_id, scripted_kernel::FAMILY);
    EXPECT_EQ(open_descriptors(), before + 1);

    // Refusals by the kernel end a query but not the socket.
    EXPECT_EQ(neighbors_of({error_message(-EOPNOTSUPP)}), 0u);
    kernel.interfaces.clear();
    EXPECT_EQ(bat_check_neighbors(), 0u);
    EXPECT_EQ(gBat_neighbor_query.socket, socket);
    EXPECT_EQ(
        log.take(),
        (lines{"DEBUG Got 0 neighbors on BATMAN iface", "ERROR Got error: Operation not supported",
               "DEBUG Got 0 neighbors on BATMAN iface", "ERROR Unable to find 'bat0' iface"}));
    bat_nlsock_close();
    EXPECT_EQ(gBat_neighbor_query.socket, nullptr);
    EXPECT_EQ(gBat_neighbor_query.callbacks, nullptr);
    EXPECT_EQ(gBat_neighbor_query.family_id, 0);
    EXPECT_EQ(open_descriptors(), before);

    kernel.families_known = false;
    EXPECT_EQ(bat_check_neighbors(), 0u);
    EXPECT_EQ(gBat_neighbor_query.socket, nullptr);
    EXPECT_EQ(log.take(), (lines{"ERROR Unable to find BATMAN on netlink socket",
                                 "ERROR Unable to connect to BATMAN netlink socket"}));
}

// The rest of a dump that broke off would be read as the answer to the next query.
TEST_F(BatmanQuery, ADumpThatBreaksOffIsNotMixedWithTheNext)
{
    const bytes one = neighbor(attr(NEIGH_ADDRESS, MAC));
    EXPECT_EQ(neighbors_of({one}), 1u); // then recvmsg() fails
    EXPECT_EQ(gBat_neighbor_query.socket, nullptr);
    kernel.answers.clear();
    kernel.answers.push_back({.datagram = {}, .error = ENOBUFS});
    EXPECT_EQ(bat_check_neighbors(), 0u);
    EXPECT_EQ(gBat_neighbor_query.socket, nullptr);
    kernel.send_error = EPERM;
    EXPECT_EQ(bat_check_neighbors(), 0u);
    kernel.send_error = 0;
    log.take();
    EXPECT_EQ(neighbors_of({one, one, done_message(0)}), 2u);
    EXPECT_EQ(log.take(), lines{"DEBUG Got 2 neighbors on BATMAN iface"});
    // Another sequence number belongs to another request's answer.
    bytes foreign = one;
    foreign[8] = 99;
    EXPECT_EQ(neighbors_of({foreign, done_message(0)}), 0u);
    EXPECT_EQ(gBat_neighbor_query.socket, nullptr);
}
