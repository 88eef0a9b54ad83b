// Reads the recorded conversations.
#include "captures.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

static std::string unhex(const std::string &text)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes += (char)strtol(text.substr(i, 2).c_str(), nullptr, 16);
    return bytes;
}

std::string hex(const std::string &bytes)
{
    std::string text;
    char digits[3];
    for (size_t i = 0; i < bytes.size(); i++) {
        snprintf(digits, sizeof(digits), "%02x", (unsigned char)bytes[i]);
        if (i && i % 4 == 0)
            text += ' ';
        text += digits;
    }
    return text;
}

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
        if (line.starts_with("  hex "))
            all.back().steps.back().bytes = unhex(line.substr(6));
        else if (line.size() > 3 && line[0] == '[' && line[2] == ' ')
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
