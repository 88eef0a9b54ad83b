// Status flags. The flag's file is the only memory of its value: what somebody else wrote or
// removed is put right by the next update.
#include "platform/zu/led.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/zu/handle.h"
#include "platform/zu/log.h"

constexpr const char *FLAGS_DIRECTORY = "/tmp/led_flags";

/// The directory, made when needed. Nothing of it may be a symbolic link: /tmp belongs to
/// everybody.
static zu_descriptor flags_open()
{
    if (mkdir(FLAGS_DIRECTORY, 0755) < 0 && errno != EEXIST)
        return zu_descriptor();
    return zu_descriptor(open(FLAGS_DIRECTORY, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

static bool flag_is(int directory, const char *name, char value)
{
    const zu_descriptor file(
        openat(directory, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    char content[2];
    return file >= 0 && read(file, content, sizeof content) == 1 && content[0] == value;
}

/// Written over, then cut: a reader never finds the flag empty.
static int flag_write(int directory, const char *name, char value)
{
    const zu_descriptor file(
        openat(directory, name, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0644));
    const bool written = file >= 0 && write(file, &value, 1) == 1 && ftruncate(file, 1) == 0;
    return written ? 0 : -1;
}

/// 0, or -1 with errno set.
static int flag_update(const char *name, char value)
{
    if (strchr(name, '/')) {
        errno = EINVAL;
        return -1;
    }
    const zu_descriptor directory = flags_open();
    if (directory < 0)
        return -1;
    return flag_is(directory, name, value) ? 0 : flag_write(directory, name, value);
}

void update_led_flag(const char *name, bool on)
{
    const char value = on ? '1' : '0';
    if (flag_update(name, value) < 0)
        log_warning("Failed to set LED flag '%s' to %c: %s", name, value, strerror(errno));
}
