// How many descriptors a process has open.
#pragma once

#include <filesystem>
#include <string>

inline long open_descriptors(const std::string &process = "self")
{
    const std::filesystem::directory_iterator all("/proc/" + process + "/fd");
    return std::distance(begin(all), end(all));
}
