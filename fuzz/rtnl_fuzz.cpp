// libraries: tarn_netlink
// Datagrams on a route netlink socket. The first byte says what they answer and what came with
// them.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "netlink/rtnl_internal.h"

constexpr rtnl_expected EXPECTED = {.port = 0, .seq = 0};

static void check(bool holds)
{
    if (!holds)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0 || size > RTNL_RECEIVE_SIZE)
        return 0;
    const uint8_t how = data[0];
    // Exactly as long as the datagram, so that reading past its end shows.
    std::vector<uint8_t> bytes(data + 1, data + size);
    const rtnl_datagram datagram = {
        .bytes = bytes, .sender_port = how & 1u, .truncated = (how & 2) != 0};

    rtnl_answer answer;
    answer.bytes.fill(0xee);
    const rtnl_verdict verdict =
        rtnl_datagram_read(datagram, EXPECTED, how & 4 ? &answer : nullptr);
    check(!(how & 1) || verdict != RTNL_ANSWERED); // not the kernel's
    if (verdict == RTNL_ANSWERED && (how & 4)) {
        nlmsghdr header;
        memcpy(&header, answer.bytes.data(), sizeof header);
        check(header.nlmsg_len >= sizeof header && header.nlmsg_len <= bytes.size());
        check(header.nlmsg_seq == EXPECTED.seq && header.nlmsg_pid == EXPECTED.port);
    }
    return 0;
}
