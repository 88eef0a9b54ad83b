// Status flags. The flag's file is the only memory of its value: what somebody else wrote or
// removed is put right by the next update.
#include "platform/zu/led.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/zu/log.h"

namespace {

constexpr const char *FLAGS_DIRECTORY = "/tmp/led_flags";

/// The directory, made when needed, or -1. Nothing of it may be a symbolic link: /tmp belongs to
/// everybody.
int flags_open()
{
    if (mkdir(FLAGS_DIRECTORY, 0755) < 0 && errno != EEXIST)
        return -1;
    return open(FLAGS_DIRECTORY, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

bool flag_is(int directory, const char *name, char value)
{
    const int fd = openat(directory, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false;
    char content[2];
    const bool same = read(fd, content, sizeof content) == 1 && content[0] == value;
    close(fd);
    return same;
}

/// Written over, then cut: a reader never finds the flag empty.
int flag_write(int directory, const char *name, char value)
{
    const int fd =
        openat(directory, name, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0)
        return -1;
    const bool written = write(fd, &value, 1) == 1 && ftruncate(fd, 1) == 0;
    const int saved_errno = errno;
    close(fd);
    errno = saved_errno;
    return written ? 0 : -1;
}

} // namespace

/// 0, or -1 with errno set.
static int flag_update(const char *name, char value)
{
    if (strchr(name, '/')) {
        errno = EINVAL;
        return -1;
    }
    const int directory = flags_open();
    if (directory < 0)
        return -1;
    const int result = flag_is(directory, name, value) ? 0 : flag_write(directory, name, value);
    const int saved_errno = errno;
    close(directory);
    errno = saved_errno;
    return result;
}

void update_led_flag(const char *name, bool on)
{
    const char value = on ? '1' : '0';
    if (flag_update(name, value) < 0)
        log_warning("Failed to set LED flag '%s' to %c: %s", name, value, strerror(errno));
}
