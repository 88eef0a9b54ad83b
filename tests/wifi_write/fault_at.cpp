// Loaded below a program (LD_PRELOAD): counts its calls that change files and, at call number
// FAULT_AT, ends it as a power cut would (SIGKILL), or with FAULT_FULL set lets every call from
// then on find the disk full. Of stdio only flushing and closing are seen from here; what the
// program has not flushed then never reaches its file. At the end of the program the count is
// written to descriptor 9, if there is one.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

static long gCalls, gFault_at;
static bool gFull;

__attribute__((constructor)) static void begin()
{
    const char *at = getenv("FAULT_AT");
    gFault_at = at ? atol(at) : 0;
    gFull = getenv("FAULT_FULL") != nullptr;
    unsetenv("LD_PRELOAD"); // its commands are not counted
}

__attribute__((destructor)) static void end()
{
    dprintf(9, "%ld\n", gCalls);
}

/// True when the disk is full for this call.
static bool fault()
{
    gCalls++;
    if (gFault_at == 0 || gCalls < gFault_at)
        return false;
    if (!gFull)
        kill(getpid(), SIGKILL);
    errno = ENOSPC;
    return true;
}

template <typename function>
static function next(const char *name)
{
    return reinterpret_cast<function>(dlsym(RTLD_NEXT, name));
}

extern "C" {

ssize_t write(int fd, const void *data, size_t size)
{
    // A disk fills in the middle of a write: half of it still fits.
    if (fault())
        return size > 1 ? syscall(SYS_write, fd, data, size / 2) : -1;
    return syscall(SYS_write, fd, data, size);
}

int fsync(int fd)
{
    return fault() ? -1 : static_cast<int>(syscall(SYS_fsync, fd));
}

int ftruncate(int fd, off_t size) noexcept
{
    return fault() && size > 0 ? -1 : static_cast<int>(syscall(SYS_ftruncate, fd, size));
}

int rename(const char *from, const char *to) noexcept
{
    return fault() ? -1 : next<int (*)(const char *, const char *)>("rename")(from, to);
}

int unlink(const char *path) noexcept
{
    (void)fault(); // needs no room
    return next<int (*)(const char *)>("unlink")(path);
}

int link(const char *from, const char *to) noexcept
{
    return fault() ? -1 : next<int (*)(const char *, const char *)>("link")(from, to);
}

int symlink(const char *text, const char *path) noexcept
{
    return fault() ? -1 : next<int (*)(const char *, const char *)>("symlink")(text, path);
}

int fflush(FILE *stream)
{
    return fault() ? EOF : next<int (*)(FILE *)>("fflush")(stream);
}

int fclose(FILE *stream)
{
    const bool full = fault();
    const int result = next<int (*)(FILE *)>("fclose")(stream);
    return full ? EOF : result;
}
}
