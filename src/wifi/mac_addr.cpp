// The one test that says what counts as a MAC address in a settings document.

#include "wifi/wifi_internal.h"

#include <cstdio>

bool str_is_mac_addr(const char *text)
{
    unsigned char bytes[6];
    return sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &bytes[0], &bytes[1], &bytes[2], &bytes[3],
                  &bytes[4], &bytes[5]) == 6;
}
