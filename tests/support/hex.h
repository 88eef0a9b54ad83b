// Bytes as hexadecimal digits.
#pragma once

#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

/// Blanks and newlines in `text` are skipped.
inline std::vector<uint8_t> from_hex(const std::string &text)
{
    std::string digits;
    for (char c : text)
        if (isxdigit((unsigned char)c))
            digits += c;
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back((uint8_t)std::stoul(digits.substr(i, 2), nullptr, 16));
    bytes.shrink_to_fit(); // lets the sanitizer see a read past the end
    return bytes;
}

/// Of a string or a vector of bytes.
template <typename Bytes>
std::string to_hex(const Bytes &bytes)
{
    std::string digits;
    for (auto byte : bytes) {
        digits += "0123456789abcdef"[(byte >> 4) & 15];
        digits += "0123456789abcdef"[byte & 15];
    }
    return digits;
}
