// Messages put together and taken from files; see bytes.h.
#include "netlink/bytes.h"

#include <cstring>
#include <fstream>

std::vector<bytes> read_hex_file(const std::string &name)
{
    std::ifstream file(std::string(TEST_DATA_DIR "/netlink/") + name);
    std::vector<bytes> out;
    for (std::string line; std::getline(file, line);)
        out.push_back(from_hex(line));
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
