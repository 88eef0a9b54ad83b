// MAC addresses: what is taken for one, and how it is written.
#include "platform/zu/mac.h"

#include <cstdio>

/// -1 for what is no hexadecimal digit.
static int digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// The usual form, which an access list has thousands of; scanf takes ten times as long.
static bool read_plain(const char *text, zu_mac *out)
{
    for (size_t i = 0; i < out->size(); i++, text += 3) {
        const int high = digit(text[0]), low = high < 0 ? -1 : digit(text[1]);
        if (low < 0 || (i < out->size() - 1 && text[2] != ':'))
            return false;
        (*out)[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

bool zu_mac_read(const char *text, zu_mac *out)
{
    zu_mac &m = *out;
    return read_plain(text, out) || sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &m[0], &m[1],
                                           &m[2], &m[3], &m[4], &m[5]) == 6;
}

bool zu_text_is_mac(std::string_view text)
{
    for (int group = 0; group < 6; group++) {
        size_t digits = 0;
        while (digits < text.size() && digit(text[digits]) >= 0)
            digits++;
        if (digits < 1 || digits > 2)
            return false;
        text.remove_prefix(digits);
        if (group == 5)
            break;
        if (!text.starts_with(':'))
            return false;
        text.remove_prefix(1);
    }
    return text.empty();
}

std::string zu_mac_text(const zu_mac &mac)
{
    char text[sizeof "02:00:00:00:00:00"];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}
