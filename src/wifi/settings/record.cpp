// Writing to the record without touching what stays as it is.
#include "wifi/settings/record.h"

#include <algorithm>
#include <cstring>

/// About a page. Records need not begin at one.
constexpr size_t BLOCK = 4096;

void wifi_settings_copy(wifi_settings *to, const wifi_settings &from)
{
    auto *target = reinterpret_cast<char *>(to);
    const auto *source = reinterpret_cast<const char *>(&from);
    for (size_t at = 0; at < sizeof *to; at += BLOCK) {
        const size_t size = std::min(BLOCK, sizeof *to - at);
        if (memcmp(target + at, source + at, size) != 0)
            memcpy(target + at, source + at, size);
    }
}

void wifi_settings_zero(void *part, size_t size)
{
    auto *bytes = static_cast<char *>(part);
    while (size > 0) {
        const size_t block = std::min(BLOCK, size);
        if (bytes[0] != 0 || memcmp(bytes, bytes + 1, block - 1) != 0)
            memset(bytes, 0, block);
        bytes += block;
        size -= block;
    }
}
