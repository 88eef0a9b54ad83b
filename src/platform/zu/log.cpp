// The log file: opening, rotating, and writing one line. Callers reach it through the macros of
// log.h; which messages are wanted at all is decided there.
#include "platform/zu/log.h"

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

#include "platform/zu/handle.h"
#include "platform/zu/system_log.h"

FILE *gDebug_file;
int gDebug_log_level = ZU_LOG_NOTICE;
zu_log_error_listener gDebug_error_listener;

static void *gListener_priv;
static char *gPath;
static char *gRotated_path;
static bool gRotates = true;
static dev_t gOpened_device; // these two tell the open file from another of its name
static ino_t gOpened_inode;

constexpr int OPEN_FLAGS = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY |
                           O_NONBLOCK; // a fifo in the file's place is not waited for
constexpr mode_t LOG_MODE = 0640;

/// True for a file that nobody else has a name of or put there: anybody may write to /tmp.
static bool is_private_log(int fd)
{
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink == 1 &&
           info.st_uid == geteuid() && (info.st_mode & 07777) == LOG_MODE;
}

/// A new file in the place of whatever has the name, or -1.
static zu_descriptor log_replace(const char *path)
{
    if (unlink(path) < 0 && errno != ENOENT)
        return zu_descriptor();
    zu_descriptor fd(open(path, OPEN_FLAGS | O_EXCL, LOG_MODE));
    if (fd >= 0)
        (void)!fchmod(fd, LOG_MODE); // whatever the umask took away
    return fd;
}

/// Opens for appending, or null. What another user put there, or has a name of, is replaced.
static FILE *log_open(const char *path)
{
    zu_descriptor fd(open(path, OPEN_FLAGS & ~O_CREAT));
    if (fd < 0 || !is_private_log(fd))
        fd = log_replace(path);
    struct stat info;
    FILE *file = fd >= 0 && fstat(fd, &info) == 0 ? fdopen(fd, "a") : nullptr;
    if (!file)
        return nullptr;
    (void)fd.release(); // the stream's
    gOpened_device = info.st_dev;
    gOpened_inode = info.st_ino;
    // A whole line fits, so each goes out in one write.
    setvbuf(file, nullptr, _IOFBF, LOG_MESSAGE_MAX + 1024);
    return file;
}

/// True unless the name belongs to another file than the open one, or to none.
static bool log_is_in_place()
{
    struct stat named;
    return !gPath || (lstat(gPath, &named) == 0 && named.st_ino == gOpened_inode &&
                      named.st_dev == gOpened_device);
}

/// Goes on in a new file when somebody has taken the log away; in the old one if there is no room.
static void log_follow_name()
{
    FILE *file = log_is_in_place() ? nullptr : log_open(gPath);
    if (!file)
        return;
    fclose(gDebug_file);
    gDebug_file = file;
}

/// Moves the full file away and starts a new one. Where either cannot be done the file in hand is
/// emptied: the limit holds in any case.
static void log_rotate()
{
    if (rename(gPath, gRotated_path) < 0 && errno != ENOENT)
        (void)!ftruncate(fileno(gDebug_file), 0);
    FILE *file = log_open(gPath);
    if (!file) {
        (void)!ftruncate(fileno(gDebug_file), 0);
        return;
    }
    fclose(gDebug_file);
    gDebug_file = file;
}

static const char *level_word(int level)
{
    static constexpr const char *WORDS[] = {"", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};
    return level >= ZU_LOG_ERROR && level <= ZU_LOG_DEBUG ? WORDS[level] : "";
}

static bool is_control(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

static bool needs_escape(const char *message)
{
    const char *end = message;
    while (*end && !is_control(*end))
        end++;
    return *end || end - message > LOG_MESSAGE_MAX;
}

/// The message with its control characters as \xNN, cut to LOG_MESSAGE_MAX bytes; null without
/// memory.
static zu_text escape(const char *message)
{
    static constexpr char HEX[] = "0123456789abcdef";
    zu_text text(static_cast<char *>(malloc(static_cast<std::size_t>(LOG_MESSAGE_MAX) + 1)));
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

static void write_line(int level, const char *function, int line, const char *message)
{
    char stamp[LOG_TIMESTAMP_SIZE];
    zu_log_timestamp(stamp);
    log_follow_name();
    fprintf(gDebug_file, "%s [%i] %s:%d: %s: %s\n", stamp, static_cast<int>(getpid()), function,
            line, level_word(level), message);
    if (fflush(gDebug_file) != 0)
        return; // no room: the line is lost
    // Appending leaves the offset at the end of the file, a forked child's lines included.
    if (gRotates && lseek(fileno(gDebug_file), 0, SEEK_CUR) > LOG_FILE_LIMIT)
        log_rotate();
}

static void deliver(int level, const char *function, int line, const char *message)
{
    if (gDebug_file && gDebug_log_level >= level) {
        write_line(level, function, line, message);
        if (level <= ZU_LOG_WARNING)
            system_log_send(level, message);
    }
    if (level == ZU_LOG_ERROR && gDebug_error_listener)
        gDebug_error_listener(message, gListener_priv);
}

void debug_init(const char *path)
{
    if (gDebug_file)
        fclose(gDebug_file);
    gDebug_file = nullptr;
    free(gPath);
    free(gRotated_path);
    gPath = strdup(path);
    if (asprintf(&gRotated_path, "%s.1", path) < 0)
        gRotated_path = nullptr;
    if (gPath && gRotated_path)
        gDebug_file = log_open(path);
}

void zu_log_after_fork()
{
    gRotates = false;
}

void debug_set_level(int level)
{
    gDebug_log_level = level;
}

void zu_log_set_error_listener(zu_log_error_listener listener, void *priv)
{
    gDebug_error_listener = listener;
    gListener_priv = priv;
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

    zu_text message(formatted);
    if (message && needs_escape(formatted))
        message = escape(formatted);
    deliver(level, function, line, message ? message.get() : "(no memory for this message)");
    errno = saved_errno;
}
