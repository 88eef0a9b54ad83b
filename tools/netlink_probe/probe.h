// netlink-probe: the commands that call the kernel access layer and print what it answered. Each
// gets its arguments (as many as its table row says) and returns an exit status: 0, or 1 for a
// failure or the answer no.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

using arguments = std::span<char *const>;

struct probe_command {
    const char *name;
    const char *usage; ///< of its arguments; those in brackets may be left out
    const char *help;
    int (*run)(arguments args);
};

extern const std::span<const probe_command> LINK_COMMANDS;
extern const std::span<const probe_command> RADIO_COMMANDS;

/// A whole decimal number of at most `limit`, else nothing (and a word on stderr).
std::optional<uint32_t> number_of(const char *text, uint32_t limit = UINT32_MAX);
