// The simulated node that a test runs on: its configuration, LED flags and journal of commands.
#pragma once

#include <string>
#include <vector>

#include "support/occurrences.h"
#include "support/own_log.h"
#include "support/run.h"
#include "support/temporary_directory.h"

/// Configuration and state as the node began with, an empty journal.
inline void begin_anew()
{
    run("[ -d /tmp/config ] || cp -R /etc/config /tmp/config; rm -rf /etc/config/* /tmp/.uci "
        "/tmp/led_flags /tmp/wifi-delayed-* /tmp/cp-hosts* /var/sim/exit /var/state/*; "
        "cp /tmp/config/* /etc/config/; : >/var/log/journal");
}

/// The committed value; a list's items with blanks between; "" without the option.
inline std::string uci(const std::string &option)
{
    const std::string value = run("uci -q get " + option).output;
    return value.substr(0, value.find_last_not_of('\n') + 1);
}

/// "1", "0", or "" when it has not been set yet.
inline std::string led(const std::string &flag)
{
    return read_file("/tmp/led_flags/" + flag).substr(0, 1);
}

/// How often the command was run.
inline int journal(const std::string &command)
{
    return occurrences(read_file("/var/log/journal"), " " + command);
}

/// Commands run since the last call, without their times.
inline std::vector<std::string> commands()
{
    std::vector<std::string> lines;
    const std::string all = read_file("/var/log/journal");
    for (size_t at = 0, end; (end = all.find('\n', at)) != std::string::npos; at = end + 1) {
        std::string line = all.substr(at, end - at);
        if (isdigit(static_cast<unsigned char>(line[0])) != 0)
            line.erase(0, line.find(' ') + 1);
        lines.push_back(line);
    }
    write_file("/var/log/journal", "");
    return lines;
}
