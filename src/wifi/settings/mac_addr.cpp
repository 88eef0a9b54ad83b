// The one test that says what counts as a MAC address in a settings document.

#include <cctype>
#include <cstdio>

#include "wifi/wifi_internal.h"

/// The usual form, which an access list has thousands of; scanf takes ten times as long.
static bool is_plain_mac_addr(const char *text)
{
    for (int i = 0; i < 17; i++)
        if (i % 3 == 2 ? text[i] != ':' : !isxdigit(static_cast<unsigned char>(text[i])))
            return false;
    return true;
}

bool str_is_mac_addr(const char *text)
{
    if (is_plain_mac_addr(text))
        return true;
    unsigned char bytes[6];
    return sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &bytes[0], &bytes[1], &bytes[2], &bytes[3],
                  &bytes[4], &bytes[5]) == 6;
}
