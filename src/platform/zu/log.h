// The log: one file, five levels, one line an event, flushed at once.
//
// The file lives in RAM on a router, so it is kept under LOG_FILE_LIMIT and rotated once. Control
// characters in a message are written as \xNN: whatever a peer puts in a name stays on one line.
#pragma once

#include <cstddef>
#include <cstdio>

enum zu_log_level {
    ZU_LOG_ERROR = 1,
    ZU_LOG_WARNING = 2,
    ZU_LOG_NOTICE = 3,
    ZU_LOG_INFO = 4,
    ZU_LOG_DEBUG = 5,
};

/// Size in bytes past which the log file is renamed to "<path>.1" and started anew.
constexpr long LOG_FILE_LIMIT = 512 * 1024;
/// Longest message in bytes as written; a longer one is cut and ends in "...".
constexpr int LOG_MESSAGE_MAX = 16 * 1024;
/// Size of a time stamp buffer.
constexpr std::size_t LOG_TIMESTAMP_SIZE = 50;

/// The open log, or null: then every call below is a no-op.
extern FILE *gDebug_file;
/// Messages of a level above this one are dropped unformatted. 0 drops all, 5 keeps all.
extern int gDebug_log_level;

/// Opens `path` for appending (0640, close-on-exec). What is not a plain file of this user's, of
/// that mode and with this one name, is replaced: a link is never followed. A log that is deleted
/// or moved away meanwhile is made anew by the next line. On failure gDebug_file stays null and the
/// daemon runs on without a log.
void debug_init(const char *path);

/// To be called in a forked child that goes on logging: its lines go into the same file, but only
/// the parent rotates it.
void zu_log_after_fork();

/// Sets the threshold; `level` is taken as it is, the callers check its range (0..5).
void debug_set_level(int level);

/// Sets the threshold from a UCI option that holds 0..5. An absent option leaves it alone; any
/// other value is refused with a WARNING.
void debug_load_level(const char *uci_option);

/// Gets every ERROR message while installed, whatever the log's level and even with no log open.
/// The text is the message alone, without the line's prefix, its control characters already written
/// out. It must not log an ERROR itself.
using zu_log_error_listener = void (*)(const char *message, void *priv);
/// Installs a listener, or removes it (null). There is one at a time.
void zu_log_set_error_listener(zu_log_error_listener listener, void *priv);
/// To be read only: while it is set, somebody wants every ERROR, said before or not.
extern zu_log_error_listener gDebug_error_listener;

/// True when a message of `level` goes anywhere: to the file, or to an ERROR listener.
inline bool zu_log_wanted(int level)
{
    return (gDebug_log_level >= level && gDebug_file) ||
           (level == ZU_LOG_ERROR && gDebug_error_listener);
}

/// While one lives, only DEBUG logs have what is logged: for trying again what failed and was said.
/// An ERROR listener hears it all the same.
class zu_log_repetition {
public:
    zu_log_repetition() : level_(gDebug_log_level)
    {
        if (level_ < ZU_LOG_DEBUG)
            gDebug_log_level = 0;
    }
    ~zu_log_repetition() { gDebug_log_level = level_; }
    zu_log_repetition(const zu_log_repetition &) = delete;
    zu_log_repetition &operator=(const zu_log_repetition &) = delete;

private:
    int level_;
};

/// Fills `buffer` with the local time as ctime_r prints it, without the newline; with zero bytes
/// when that fails.
void zu_log_timestamp(char (&buffer)[LOG_TIMESTAMP_SIZE]);

/// Writes one line. Callers use the macros below, which check zu_log_wanted() first.
void zu_log(int level, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#define ZU_LOG(level, ...)                                                                         \
    do {                                                                                           \
        if (zu_log_wanted(level))                                                                  \
            zu_log(level, __func__, __LINE__, __VA_ARGS__);                                        \
    } while (0)

#define log_error(...) ZU_LOG(ZU_LOG_ERROR, __VA_ARGS__)
#define log_warning(...) ZU_LOG(ZU_LOG_WARNING, __VA_ARGS__)
#define log_notice(...) ZU_LOG(ZU_LOG_NOTICE, __VA_ARGS__)
#define log_info(...) ZU_LOG(ZU_LOG_INFO, __VA_ARGS__)
#define log_debug(...) ZU_LOG(ZU_LOG_DEBUG, __VA_ARGS__)
