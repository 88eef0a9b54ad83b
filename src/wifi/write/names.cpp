// Names of sections and options that hold a number.
#include "wifi/write/write_internal.h"

std::string numbered(const char *prefix, int number, const char *suffix)
{
    return prefix + std::to_string(number) + suffix;
}

std::string wifi_ap_section(int radio, int ssid)
{
    return numbered("wireless.ap", radio, "_") + std::to_string(ssid);
}
