// Small files: one value or one text each. Every reader caps what it takes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/types.h>

/// The decimal integer a file holds (blanks around it allowed). 0, or -1 with *value untouched.
int file_read_int(const char *path, int *value);
/// The file's text up to `max_length` bytes, cut at the first newline. 0 or -1.
int file_read_string(const char *path, std::string &text, std::size_t max_length);
/// Up to `size` bytes. The number read, or -1.
ssize_t file_read_bin(const char *path, void *buffer, std::size_t size);
/// Writes all of the text. 0, or -1 with errno set.
[[nodiscard]] int file_write_all(int fd, std::string_view text);
/// Replaces (or with `append` continues) the file's content. Symbolic links are not followed.
/// 0, or -1 with errno set.
int _file_write_string(const char *path, const char *text, bool append);
int _file_write_string_fmt(const char *path, bool append, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
/// True when a process of that id exists (also one that may not be signalled).
bool process_is_alive(pid_t pid);
