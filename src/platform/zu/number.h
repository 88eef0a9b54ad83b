// Numbers in texts.
#pragma once

#include <charconv>
#include <string_view>

/// Reads a text that is a decimal number as a whole. False, `out` untouched, when it is not one or
/// does not fit.
template <typename NUMBER>
[[nodiscard]] bool zu_number_read(std::string_view text, NUMBER *out)
{
    NUMBER number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return false;
    *out = number;
    return true;
}
