// Reads the recorded conversations.
#include "captures.h"

#include <cstdio>
#include <fstream>

#include "support/hex.h"

// "[A connect]", "[A closed by client]", "[A closed by broker]"
static void read_event(const std::string &line, capture *to)
{
    const std::string what = line.substr(3, line.find(']') - 3);
    const auto kind = what == "connect"            ? capture_step::CONNECT
                      : what == "closed by client" ? capture_step::CLOSED_BY_CLIENT
                                                   : capture_step::CLOSED_BY_BROKER;
    to->steps.push_back({kind, line[1], {}, false});
}

// "A -> broker   12 bytes", "A <- broker   12 bytes, 1 fd attached"
static void read_message(const std::string &line, capture *to)
{
    const auto kind = line[2] == '-' ? capture_step::TO_BROKER : capture_step::TO_CLIENT;
    const bool has_fd = line.find("fd attached") != std::string::npos;
    to->steps.push_back({kind, line[0], {}, has_fd});
}

static std::vector<capture> read_captures()
{
    std::vector<capture> all;
    std::ifstream file(TEST_DATA_DIR "/libubus/ubus-session.txt");
    for (std::string line; std::getline(file, line);) {
        int number;
        if (sscanf(line.c_str(), "SESSION %d:", &number) == 1) {
            all.push_back({number, line.substr(line.find(':') + 2), {}});
            continue;
        }
        if (all.empty())
            continue;
        if (line.starts_with("  hex ")) {
            const std::vector<uint8_t> bytes = from_hex(line.substr(6));
            all.back().steps.back().bytes.assign(bytes.begin(), bytes.end());
        } else if (line.size() > 3 && line[0] == '[' && line[2] == ' ')
            read_event(line, &all.back());
        else if (line.find(" broker   ") == 4)
            read_message(line, &all.back());
    }
    return all;
}

const std::vector<capture> &captures()
{
    static const std::vector<capture> all = read_captures();
    return all;
}

const capture &capture_of(int number)
{
    return captures().at((size_t)number - 1);
}
