// Messages put together and taken from files; see bytes.h.
#include "netlink/bytes.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <fstream>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <set>

/// Turns a number around where this machine counts from the other end.
static void turn(uint8_t *at, size_t size)
{
    if constexpr (std::endian::native == std::endian::big)
        std::reverse(at, at + size);
}

template <typename T>
static T turned(uint8_t *at)
{
    turn(at, sizeof(T));
    T value;
    memcpy(&value, at, sizeof value);
    return value;
}

/// What has 2, 4 or 8 bytes is a number, but for these texts and addresses; what does not matter to
/// any test may be one as well.
static void turn_attributes(uint8_t *at, const uint8_t *end, const std::string &path)
{
    static const std::set<std::string> nests = {"link/18",      "link/18/2",     "generic/21",
                                                "generic/21/8", "generic/21/14", "generic/84"};
    static const std::set<std::string> no_numbers = {"link/3", "link/18/1", "rule/1", "rule/2"};
    while (at + NLA_HDRLEN <= end) {
        const size_t length = turned<uint16_t>(at);
        const std::string name = path + "/" + std::to_string(turned<uint16_t>(at + 2));
        const size_t size = length - NLA_HDRLEN;
        if (nests.contains(name))
            turn_attributes(at + NLA_HDRLEN, at + length, name);
        else if ((size == 2 || size == 4 || size == 8) && !no_numbers.contains(name))
            turn(at + NLA_HDRLEN, size);
        at += NLA_ALIGN(length);
    }
}

/// Turns the header, which it returns.
static nlmsghdr turn_header(uint8_t *at)
{
    for (size_t field : {0, 8, 12})
        turn(at + field, 4);
    for (size_t field : {4, 6})
        turn(at + field, 2);
    nlmsghdr header;
    memcpy(&header, at, sizeof header);
    return header;
}

bytes generic_hex(const std::string &hex)
{
    bytes out = from_hex(hex);
    uint8_t *const end = out.data() + out.size();
    for (uint8_t *at = out.data(); at < end;) {
        const nlmsghdr header = turn_header(at);
        if (header.nlmsg_type == NLMSG_DONE)
            turn(at + NLMSG_HDRLEN, 4);
        else
            turn_attributes(at + NLMSG_HDRLEN + GENL_HDRLEN, at + header.nlmsg_len, "generic");
        at += NLMSG_ALIGN(header.nlmsg_len);
    }
    return out;
}

bytes route_hex(const std::string &hex)
{
    bytes out = from_hex(hex);
    uint8_t *body = out.data() + NLMSG_HDRLEN, *end = out.data() + out.size();
    if (turn_header(out.data()).nlmsg_type >= RTM_NEWRULE) {
        turn(body + offsetof(fib_rule_hdr, flags), 4);
        turn_attributes(body + sizeof(fib_rule_hdr), end, "rule");
    } else {
        turn(body + offsetof(ifinfomsg, ifi_type), 2);
        for (size_t field = offsetof(ifinfomsg, ifi_index); field < sizeof(ifinfomsg); field += 4)
            turn(body + field, 4);
        turn_attributes(body + sizeof(ifinfomsg), end, "link");
    }
    return out;
}

std::vector<bytes> read_hex_file(const std::string &name)
{
    std::ifstream file(std::string(TEST_DATA_DIR "/netlink/") + name);
    std::vector<bytes> out;
    for (std::string line; std::getline(file, line);)
        out.push_back(generic_hex(line));
    return out;
}

template <typename T>
static bytes raw(const T &value)
{
    bytes out(sizeof value);
    memcpy(out.data(), &value, sizeof value);
    return out;
}

bytes join(std::initializer_list<bytes> parts)
{
    bytes out;
    for (const bytes &part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

bytes attr(uint16_t type, const bytes &payload)
{
    bytes out = join({raw((uint16_t)(NLA_HDRLEN + payload.size())), raw(type), payload});
    out.resize(NLA_ALIGN(out.size()));
    return out;
}

bytes attr_u16(uint16_t type, uint16_t value)
{
    return attr(type, raw(value));
}

bytes attr_u32(uint16_t type, uint32_t value)
{
    return attr(type, raw(value));
}

bytes attr_text(uint16_t type, const std::string &text)
{
    return attr(type, bytes(text.c_str(), text.c_str() + text.size() + 1));
}

bytes message(uint16_t type, uint16_t flags, const bytes &payload)
{
    nlmsghdr header = {};
    header.nlmsg_len = (uint32_t)(sizeof header + payload.size());
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    return join({raw(header), payload});
}

bytes generic_message(uint16_t family, uint8_t command, const bytes &attributes, uint16_t flags)
{
    return message(family, flags, join({raw(genlmsghdr{command, 1, 0}), attributes}));
}

bytes error_message(int32_t error)
{
    return message(NLMSG_ERROR, 0, join({raw(error), raw(nlmsghdr{})}));
}

bytes done_message(int32_t error, uint16_t flags)
{
    return message(NLMSG_DONE, flags, raw(error));
}
