// Counting in logs and dumps.
#pragma once

#include <string>

inline int occurrences(const std::string &text, const std::string &what)
{
    int found = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at++)
        found++;
    return found;
}
