// The log file: opening, rotating, and writing one line. Callers reach it through the macros of
// log.h; which messages are wanted at all is decided there.
#include "platform/zu/log.h"
#include "platform/zu/system_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

FILE *gDebug_file;
int gDebug_log_level = ZU_LOG_NOTICE;
zu_log_error_listener gDebug_error_listener;

namespace {

struct free_text {
    void operator()(char *text) const { free(text); }
};
using text_ptr = std::unique_ptr<char, free_text>;

void *g_listener_priv;
char *g_path;
char *g_rotated_path;
bool g_rotates = true;

constexpr int OPEN_FLAGS = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY |
                           O_NONBLOCK; // a fifo in the file's place is not waited for
constexpr mode_t LOG_MODE = 0640;

/// True for a file that nobody else has a name of or put there: anybody may write to /tmp.
bool is_ours_alone(int fd)
{
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink == 1 &&
           info.st_uid == geteuid() && (info.st_mode & 07777) == LOG_MODE;
}

/// A new file in the place of whatever has the name, or -1.
int log_replace(const char *path)
{
    if (unlink(path) < 0 && errno != ENOENT)
        return -1;
    const int fd = open(path, OPEN_FLAGS | O_EXCL, LOG_MODE);
    if (fd >= 0)
        (void)!fchmod(fd, LOG_MODE); // whatever the umask took away
    return fd;
}

/// Opens for appending, or null. What is not a log of our own is replaced by one.
FILE *log_open(const char *path)
{
    int fd = open(path, OPEN_FLAGS & ~O_CREAT);
    if (fd < 0 || !is_ours_alone(fd)) {
        if (fd >= 0)
            close(fd);
        fd = log_replace(path);
    }
    FILE *file = fd >= 0 ? fdopen(fd, "a") : nullptr;
    if (!file) {
        if (fd >= 0)
            close(fd);
        return nullptr;
    }
    // A whole line fits, so each goes out in one write.
    setvbuf(file, nullptr, _IOFBF, LOG_MESSAGE_MAX + 1024);
    return file;
}

/// True unless the name belongs to another file than the open one, or to none.
bool log_is_in_place()
{
    struct stat opened, named;
    if (!g_path || fstat(fileno(gDebug_file), &opened) != 0)
        return true;
    return lstat(g_path, &named) == 0 && named.st_ino == opened.st_ino &&
           named.st_dev == opened.st_dev;
}

/// Goes on in a new file when somebody has taken the log away; in the old one if there is no room.
void log_follow_name()
{
    FILE *file = log_is_in_place() ? nullptr : log_open(g_path);
    if (!file)
        return;
    fclose(gDebug_file);
    gDebug_file = file;
}

/// Moves the full file away and starts a new one. Where either cannot be done the file in hand is
/// emptied: the limit holds in any case.
void log_rotate()
{
    if (rename(g_path, g_rotated_path) < 0 && errno != ENOENT)
        (void)!ftruncate(fileno(gDebug_file), 0);
    FILE *file = log_open(g_path);
    if (!file) {
        (void)!ftruncate(fileno(gDebug_file), 0);
        return;
    }
    fclose(gDebug_file);
    gDebug_file = file;
}

const char *level_word(int level)
{
    static constexpr const char *WORDS[] = {"", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};
    return level >= ZU_LOG_ERROR && level <= ZU_LOG_DEBUG ? WORDS[level] : "";
}

bool is_control(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

bool needs_escape(const char *message)
{
    const char *end = message;
    while (*end && !is_control(*end))
        end++;
    return *end || end - message > LOG_MESSAGE_MAX;
}

/// The message with its control characters as \xNN, cut to LOG_MESSAGE_MAX bytes; null without
/// memory.
text_ptr escape(const char *message)
{
    static constexpr char HEX[] = "0123456789abcdef";
    text_ptr text(static_cast<char *>(malloc(static_cast<std::size_t>(LOG_MESSAGE_MAX) + 1)));
    if (!text)
        return nullptr;
    char *out = text.get();
    const char *const full = out + LOG_MESSAGE_MAX - strlen("\\xNN...");
    for (; *message && out <= full; message++) {
        if (!is_control(*message)) {
            *out++ = *message;
            continue;
        }
        const auto byte = static_cast<unsigned char>(*message);
        const char escaped[] = {'\\', 'x', HEX[byte >> 4], HEX[byte & 15]};
        memcpy(out, escaped, sizeof escaped);
        out += sizeof escaped;
    }
    strcpy(out, *message ? "..." : "");
    return text;
}

void write_line(int level, const char *function, int line, const char *message)
{
    char stamp[LOG_TIMESTAMP_SIZE];
    zu_log_timestamp(stamp);
    log_follow_name();
    fprintf(gDebug_file, "%s [%i] %s:%d: %s: %s\n", stamp, static_cast<int>(getpid()), function,
            line, level_word(level), message);
    if (fflush(gDebug_file) != 0)
        return; // no room: the line is lost
    // Appending leaves the offset at the end of the file, a forked child's lines included.
    if (g_rotates && lseek(fileno(gDebug_file), 0, SEEK_CUR) > LOG_FILE_LIMIT)
        log_rotate();
}

void deliver(int level, const char *function, int line, const char *message)
{
    if (gDebug_file && gDebug_log_level >= level) {
        write_line(level, function, line, message);
        if (level <= ZU_LOG_WARNING)
            system_log_send(level, message);
    }
    if (level == ZU_LOG_ERROR && gDebug_error_listener)
        gDebug_error_listener(message, g_listener_priv);
}

} // namespace

void debug_init(const char *path)
{
    if (gDebug_file)
        fclose(gDebug_file);
    gDebug_file = nullptr;
    free(g_path);
    free(g_rotated_path);
    g_path = strdup(path);
    if (asprintf(&g_rotated_path, "%s.1", path) < 0)
        g_rotated_path = nullptr;
    if (g_path && g_rotated_path)
        gDebug_file = log_open(path);
}

void zu_log_after_fork()
{
    g_rotates = false;
}

void debug_set_level(int level)
{
    gDebug_log_level = level;
}

void zu_log_set_error_listener(zu_log_error_listener listener, void *priv)
{
    gDebug_error_listener = listener;
    g_listener_priv = priv;
}

void zu_log_timestamp(char (&buffer)[LOG_TIMESTAMP_SIZE])
{
    memset(buffer, 0, sizeof buffer);
    const time_t now = time(nullptr);
    if (!ctime_r(&now, buffer)) {
        buffer[0] = '\0';
        return;
    }
    buffer[strcspn(buffer, "\n")] = '\0';
}

void zu_log(int level, const char *function, int line, const char *format, ...)
{
    // The caller may be about to report errno itself.
    const int saved_errno = errno;
    char *formatted = nullptr;
    va_list args;
    va_start(args, format);
    if (vasprintf(&formatted, format, args) < 0)
        formatted = nullptr;
    va_end(args);

    text_ptr message(formatted);
    if (message && needs_escape(formatted))
        message = escape(formatted);
    deliver(level, function, line, message ? message.get() : "(no memory for this message)");
    errno = saved_errno;
}
