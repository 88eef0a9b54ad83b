// Reads one datagram from a route netlink socket: which of its messages answers our request, and
// what the answer is. Pure but for the log and errno.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "netlink/rtnl_internal.h"
#include "platform/zu/log.h"

static nlmsghdr header_at(std::span<const uint8_t> bytes)
{
    nlmsghdr header;
    memcpy(&header, bytes.data(), sizeof header);
    return header;
}

static void answer_set(rtnl_answer *answer, std::span<const uint8_t> message)
{
    if (answer)
        std::ranges::copy(message, answer->bytes.begin());
}

/// An error message with code 0 is the acknowledgement.
static rtnl_verdict error_message_read(std::span<const uint8_t> message, rtnl_answer *answer)
{
    nlmsgerr error;
    if (message.size() - NLMSG_HDRLEN < sizeof error) {
        log_error("netlink message truncated");
        return RTNL_FAILED;
    }
    memcpy(&error, message.data() + NLMSG_HDRLEN, sizeof error);
    if (error.error == 0) {
        answer_set(answer, message);
        return RTNL_ANSWERED;
    }
    // Negated in unsigned arithmetic: the number comes from outside, and may be INT_MIN.
    int code = static_cast<int>(0u - static_cast<unsigned>(error.error));
    log_error("RTNETLINK answers: %s (%d)", strerror(code), error.error);
    errno = code;
    return RTNL_FAILED;
}

static rtnl_verdict message_read(std::span<const uint8_t> message, rtnl_answer *answer)
{
    if (header_at(message).nlmsg_type == NLMSG_ERROR)
        return error_message_read(message, answer);
    if (!answer) {
        log_notice("unexpected reply");
        return RTNL_WAITING;
    }
    answer_set(answer, message);
    return RTNL_ANSWERED;
}

rtnl_verdict rtnl_datagram_read(const rtnl_datagram &datagram, const rtnl_expected &expected,
                                rtnl_answer *answer)
{
    std::span<const uint8_t> rest = datagram.bytes;
    while (rest.size() >= sizeof(nlmsghdr)) {
        const nlmsghdr header = header_at(rest);
        if (header.nlmsg_len < sizeof header || header.nlmsg_len > rest.size()) {
            if (datagram.truncated)
                log_error("truncated message");
            else
                log_error("malformed message: len=%d", static_cast<int>(header.nlmsg_len));
            return RTNL_FAILED;
        }
        if (datagram.sender_port == 0 && header.nlmsg_pid == expected.port &&
            header.nlmsg_seq == expected.seq) {
            rtnl_verdict verdict = message_read(rest.first(header.nlmsg_len), answer);
            if (verdict != RTNL_WAITING)
                return verdict;
        }
        rest = rest.subspan(std::min<size_t>(NLMSG_ALIGN(header.nlmsg_len), rest.size()));
    }
    if (datagram.truncated) {
        log_notice("message truncated");
        return RTNL_WAITING;
    }
    if (!rest.empty()) {
        log_error("did not parse %d parse bytes", static_cast<int>(rest.size()));
        return RTNL_FAILED;
    }
    return RTNL_WAITING;
}
