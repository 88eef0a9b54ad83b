// A directory of its own for one test, removed with what is in it. It is locked for as long as its
// process lives; the first one a process makes also clears away what processes that were killed
// left.
#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <ftw.h>
#include <glob.h>
#include <iterator>
#include <string>
#include <sys/file.h>
#include <unistd.h>

class temporary_directory {
public:
    std::string path = "/tmp/tarn_test_XXXXXX";

    temporary_directory()
    {
        [[maybe_unused]] static const bool swept = remove_abandoned();
        // Nobody looks for it under the name that it has until it is locked.
        std::string unlocked = "/tmp/tarn_new_XXXXXX";
        if (!mkdtemp(unlocked.data()) || (lock_ = take_lock(unlocked)) < 0)
            abort();
        path.replace(path.size() - 6, 6, unlocked, unlocked.size() - 6);
        if (rename(unlocked.c_str(), path.c_str()) != 0)
            abort();
    }
    ~temporary_directory()
    {
        remove_all(path);
        close(lock_);
    }
    temporary_directory(const temporary_directory &) = delete;
    temporary_directory &operator=(const temporary_directory &) = delete;

    std::string operator/(const std::string &name) const { return path + "/" + name; }

private:
    int lock_;

    static int take_lock(const std::string &directory)
    {
        const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0 || flock(fd, LOCK_EX | LOCK_NB) == 0)
            return fd;
        close(fd);
        return -1;
    }
    static void remove_all(const std::string &directory)
    {
        const auto remove_entry = [](const char *entry, const struct stat *, int, FTW *) {
            return remove(entry);
        };
        nftw(directory.c_str(), remove_entry, 8, FTW_DEPTH | FTW_PHYS);
    }
    static bool remove_abandoned()
    {
        glob_t found = {};
        glob("/tmp/tarn_test_*", GLOB_NOSORT, nullptr, &found);
        for (size_t i = 0; i < found.gl_pathc; i++) {
            const int lock = take_lock(found.gl_pathv[i]);
            if (lock < 0)
                continue;
            remove_all(found.gl_pathv[i]);
            close(lock);
        }
        globfree(&found);
        return true;
    }
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
