// Netlink messages as bytes: from hexadecimal text, from files of captured ones, and built by hand;
// always in the byte order of this machine, as netlink is.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <string>
#include <vector>

#include "support/hex.h"

using bytes = std::vector<uint8_t>;

/// A message, in hexadecimal as a little-endian machine has it, in the byte order of this one: a
/// datagram of generic ones, or a request of the route family.
bytes generic_hex(const std::string &hex);
bytes route_hex(const std::string &hex);
/// One datagram a line of tests/data/netlink/NAME.
std::vector<bytes> read_hex_file(const std::string &name);

/// One attribute with its padding; the length field counts `payload` alone.
bytes attr(uint16_t type, const bytes &payload);
bytes attr_u16(uint16_t type, uint16_t value);
bytes attr_u32(uint16_t type, uint32_t value);
bytes attr_text(uint16_t type, const std::string &text);
bytes join(std::initializer_list<bytes> parts);

/// A message whose port and sequence number are those of the request it answers (the scripted
/// kernel fills in zeros).
bytes message(uint16_t type, uint16_t flags, const bytes &payload);
bytes generic_message(uint16_t family, uint8_t command, const bytes &attributes,
                      uint16_t flags = NLM_F_MULTI);
/// An acknowledgement (0) or refusal (negative errno) and the end of a dump.
bytes error_message(int32_t error);
bytes done_message(int32_t error, uint16_t flags = NLM_F_MULTI);
