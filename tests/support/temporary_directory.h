// A directory of its own for one test, removed with what is in it.
#pragma once

#include <cstdlib>
#include <fstream>
#include <ftw.h>
#include <iterator>
#include <string>
#include <unistd.h>

struct temporary_directory {
    std::string path = "/tmp/tarn_test_XXXXXX";

    temporary_directory()
    {
        if (!mkdtemp(path.data()))
            abort();
    }
    ~temporary_directory()
    {
        const auto remove_entry = [](const char *entry, const struct stat *, int, FTW *) {
            return remove(entry);
        };
        nftw(path.c_str(), remove_entry, 8, FTW_DEPTH | FTW_PHYS);
    }
    temporary_directory(const temporary_directory &) = delete;
    temporary_directory &operator=(const temporary_directory &) = delete;

    std::string operator/(const std::string &name) const { return path + "/" + name; }
};

inline std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const std::string &path, const std::string &content)
{
    std::ofstream(path, std::ios::binary) << content;
}
