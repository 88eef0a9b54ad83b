// Small files. Readers follow symbolic links, as sysfs is made of them; writers do not follow one
// in the file's own place. Nothing here waits for the other end of a fifo.
#include "platform/zu/file.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "platform/zu/handle.h"
#include "platform/zu/number.h"

static ssize_t read_all(int fd, char *buffer, std::size_t size)
{
    std::size_t used = 0;
    while (used < size) {
        const ssize_t got = read(fd, buffer + used, size - used);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        used += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(used);
}

static std::string_view trim(std::string_view text)
{
    constexpr const char *BLANKS = " \t\r\n";
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

int file_read_int(const char *path, int *value)
{
    char buffer[64];
    const ssize_t length = file_read_bin(path, buffer, sizeof buffer);
    // A full buffer may be the beginning of a longer number.
    if (length < 0 || static_cast<std::size_t>(length) == sizeof buffer)
        return -1;
    const std::string_view text = trim({buffer, static_cast<std::size_t>(length)});
    return zu_number_read(text, value) ? 0 : -1;
}

int file_read_string(const char *path, std::string &text, std::size_t max_length)
{
    std::string content(max_length, '\0');
    const ssize_t length = file_read_bin(path, content.data(), max_length);
    if (length < 0)
        return -1;
    content.resize(static_cast<std::size_t>(length));
    content.resize(std::min(content.find_first_of(std::string_view("\n\0", 2)), content.size()));
    text = std::move(content);
    return 0;
}

ssize_t file_read_bin(const char *path, void *buffer, std::size_t size)
{
    const zu_descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    return file < 0 ? -1 : read_all(file, static_cast<char *>(buffer), size);
}

int file_write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t put = write(fd, text.data(), text.size());
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            return -1;
        text.remove_prefix(static_cast<std::size_t>(put));
    }
    return 0;
}

int _file_write_string(const char *path, const char *text, bool append)
{
    const int mode = append ? O_APPEND : O_TRUNC;
    zu_descriptor file(open(
        path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK | mode, 0644));
    if (file < 0 || file_write_all(file, text) < 0)
        return -1;
    return close(file.release()); // some file systems tell only here that there was no room
}

int _file_write_string_fmt(const char *path, bool append, const char *format, ...)
{
    char *formatted = nullptr;
    va_list args;
    va_start(args, format);
    const int length = vasprintf(&formatted, format, args);
    va_end(args);
    if (length < 0) {
        errno = ENOMEM;
        return -1;
    }
    const zu_text owned(formatted);
    return _file_write_string(path, formatted, append);
}

bool process_is_alive(pid_t pid)
{
    return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}
