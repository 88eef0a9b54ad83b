// Recorded conversations on the bus, read from their annotated text.
#pragma once

#include <string>
#include <vector>

struct capture_step {
    enum kind { CONNECT, CLOSED_BY_CLIENT, CLOSED_BY_BROKER, TO_BROKER, TO_CLIENT };
    kind what;
    char connection; // its letter
    std::string bytes;
    bool has_fd;
};

struct capture {
    int number;
    std::string title;
    std::vector<capture_step> steps;
};

/// All of them, in order. Empty when the file does not read.
const std::vector<capture> &captures();
const capture &capture_of(int number);
