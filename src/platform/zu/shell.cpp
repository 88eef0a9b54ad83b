// Shell commands through system(3).
#include "platform/zu/shell.h"

#include "platform/zu/log.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct dir_closer {
    void operator()(DIR *dir) const { closedir(dir); }
};

/// Marks every descriptor but the standard ones close-on-exec. libcurl opens some (its resolver's,
/// the multi handle's wake-up pair) that it neither marks nor shows.
void descriptors_close_on_exec()
{
    const std::unique_ptr<DIR, dir_closer> dir(opendir("/proc/self/fd"));
    if (!dir)
        return;
    while (const dirent *entry = readdir(dir.get())) {
        const int fd = atoi(entry->d_name);
        if (fd > STDERR_FILENO)
            (void)fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
}

} // namespace

shell_result shell_run(const char *command)
{
    descriptors_close_on_exec();
    errno = 0;
    const int status = system(command);
    if (status < 0)
        return {false, errno, 0};
    if (WIFSIGNALED(status))
        return {false, EINTR, 0};
    return {true, 0, WEXITSTATUS(status)};
}

void shell_run_ignored(const char *command)
{
    const shell_result result = shell_run(command);
    log_debug("'%s' %s %d", command, result.ran ? "ended with status" : "could not be run, errno",
              result.ran ? result.exit_status : result.error);
}
