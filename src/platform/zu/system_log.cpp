// One datagram a message, in the old BSD form that every log daemon on /dev/log takes. The C
// library's syslog() would do the same, but wait while the log daemon has no room; here the loop
// comes first.
#include "platform/zu/system_log.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "platform/zu/log.h"

/// What log daemons read at once, a NUL included.
constexpr int LINE_SIZE = 1024;

static int gSocket = -1;
/// Not connected: the log daemon that answers to the path when a line is sent gets it.
static sockaddr_un gAddress = {AF_UNIX, ""};

void system_log_open(const char *path)
{
    const size_t length = strlen(path);
    if (gSocket >= 0 || length >= sizeof gAddress.sun_path)
        return;
    memcpy(gAddress.sun_path, path, length + 1);
    gSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

/// The line's length after a cut that leaves whole characters.
static int cut(char *line)
{
    static constexpr char MARK[] = "...";
    int end = LINE_SIZE - static_cast<int>(sizeof MARK);
    while (end > 0 && (line[end] & 0xc0) == 0x80)
        end--;
    memcpy(line + end, MARK, sizeof MARK);
    return end + static_cast<int>(strlen(MARK));
}

void system_log_send(int level, const char *message)
{
    if (gSocket < 0)
        return;
    char stamp[sizeof "Nov 21 20:00:00"] = "";
    const time_t now = time(nullptr);
    tm local;
    if (localtime_r(&now, &local))
        strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &local);
    const int priority = LOG_DAEMON | (level == ZU_LOG_ERROR ? LOG_ERR : LOG_WARNING);
    char line[LINE_SIZE];
    int length = snprintf(line, sizeof line, "<%d>%s tarn_net[%d]: %s", priority, stamp,
                          static_cast<int>(getpid()), message);
    if (length >= LINE_SIZE)
        length = cut(line);
    (void)sendto(gSocket, line, static_cast<size_t>(length), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr *>(&gAddress), sizeof gAddress);
}
