// MAC addresses and their texts.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

using zu_mac = std::array<uint8_t, 6>;

/// Reads "02:00:5e:10:00:01" as scanf() does: single digits and blanks before a group are taken,
/// and what follows the last group is not looked at. False, `out` undefined, for anything else.
[[nodiscard]] bool zu_mac_read(const char *text, zu_mac *out);
/// True for six groups of one or two digits joined by colons and nothing else: such a text of a
/// command's output may become part of another command line.
bool zu_text_is_mac(std::string_view text);
/// "02:00:5e:10:00:01".
std::string zu_mac_text(const zu_mac &mac);
