// Handles that release what they hold at the end of their scope.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <unistd.h>
#include <utility>

struct zu_release {
    void operator()(char *text) const { free(text); }
    void operator()(FILE *file) const { fclose(file); }
    void operator()(DIR *directory) const { closedir(directory); }
};
/// Text of malloc(), as C libraries give it.
using zu_text = std::unique_ptr<char, zu_release>;
using zu_file = std::unique_ptr<FILE, zu_release>;
using zu_directory = std::unique_ptr<DIR, zu_release>;

/// A file descriptor; below 0: none. Closing it keeps errno.
class zu_descriptor {
public:
    zu_descriptor() = default;
    explicit zu_descriptor(int fd) : fd_(fd) {}
    zu_descriptor(zu_descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    zu_descriptor &operator=(zu_descriptor &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~zu_descriptor()
    {
        const int error = errno;
        if (fd_ >= 0)
            close(fd_);
        errno = error;
    }
    operator int() const { return fd_; }
    /// The caller closes it from now on.
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_ = -1;
};
