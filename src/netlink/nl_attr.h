// Attributes by number and the policy that checks their lengths before anybody reads them.
#pragma once

#include <array>
#include <cstdint>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <optional>
#include <string>

/// One row per attribute type from 0 to MAX; rows left out are not checked.
template <size_t MAX>
using nl_policy = std::array<nla_policy, MAX + 1>;
/// One pointer per attribute type from 0 to MAX, null where the message has none.
template <size_t MAX>
using nl_attributes = std::array<nlattr *, MAX + 1>;

constexpr nla_policy nl_policy_type(uint16_t type, uint16_t max_length = 0)
{
    return {.type = type, .minlen = 0, .maxlen = max_length};
}

constexpr nla_policy nl_policy_fixed(uint16_t length)
{
    return {.type = NLA_UNSPEC, .minlen = length, .maxlen = length};
}

/// Reads the attributes of a generic netlink message whose header was checked.
template <size_t SIZE>
bool nl_message_parse(std::array<nlattr *, SIZE> *out, genlmsghdr *generic,
                      const std::array<nla_policy, SIZE> &policy)
{
    return nla_parse(out->data(), static_cast<int>(SIZE) - 1, genlmsg_attrdata(generic, 0),
                     genlmsg_attrlen(generic, 0), policy.data()) >= 0;
}

/// Reads the attributes nested in `nest`; false also when there is no nest.
template <size_t SIZE>
bool nl_nest_parse(std::array<nlattr *, SIZE> *out, nlattr *nest,
                   const std::array<nla_policy, SIZE> &policy)
{
    return nest &&
           nla_parse_nested(out->data(), static_cast<int>(SIZE) - 1, nest, policy.data()) >= 0;
}

inline std::optional<uint32_t> nl_u32(nlattr *attribute)
{
    return attribute ? std::optional(nla_get_u32(attribute)) : std::nullopt;
}

inline uint64_t nl_u64_or_0(nlattr *attribute)
{
    return attribute ? nla_get_u64(attribute) : 0;
}

/// A byte that holds a signed number of dBm.
inline std::optional<int8_t> nl_dbm(nlattr *attribute)
{
    return attribute ? std::optional(static_cast<int8_t>(nla_get_u8(attribute))) : std::nullopt;
}
