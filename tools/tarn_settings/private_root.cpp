// Mount and network namespaces, for an ordinary user in a user namespace where that user is root.
// What is in them ends with the process. Commands end like commands that are not there: the daemon
// runs them and goes on.
#include "private_root.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <memory>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/zu/handle.h"
#include "wifi/write/commit.h"

constexpr size_t PACKAGE_MAX = 4 * 1024 * 1024;
constexpr char ROOT[] = "/tmp"; // the daemon needs one: it is on every system

static bool failed(const std::string &what, std::string &error)
{
    error = what + ": " + strerror(errno);
    return false;
}

/// Nothing but a plain file is waited for or read.
static bool read_package(const std::string &path, std::string &text, std::string &error)
{
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    const zu_file file(fd >= 0 ? fdopen(fd, "r") : nullptr);
    struct stat info {};
    if (!file || fstat(fd, &info) != 0)
        return failed(path, error);
    if (!S_ISREG(info.st_mode)) {
        error = path + ": is no plain file";
        return false;
    }
    text.resize(PACKAGE_MAX + 1);
    text.resize(fread(text.data(), 1, text.size(), file.get()));
    if (ferror(file.get()))
        return failed(path, error);
    if (text.size() > PACKAGE_MAX)
        error = path + ": larger than 4 MiB";
    return error.empty();
}

static bool write_text(const char *path, const std::string &text)
{
    zu_file file(fopen(path, "we"));
    const bool written = file && fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    return file && fclose(file.release()) == 0 && written;
}

/// In the new user namespace this user is root, and nobody else exists.
static bool become_its_root(uid_t user, gid_t group)
{
    return write_text("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
           write_text("/proc/self/setgroups", "deny") &&
           write_text("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

static bool leave_namespaces()
{
    constexpr int NAMESPACES = CLONE_NEWNS | CLONE_NEWNET;
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(NAMESPACES) == 0)
        return true;
    return errno == EPERM && unshare(NAMESPACES | CLONE_NEWUSER) == 0 &&
           become_its_root(user, group);
}

static bool fill(const private_files &files, std::string &error)
{
    for (const char *directory : {"/etc", "/etc/config", "/tmp", "/tmp/.uci", "/var", "/var/state"})
        if (mkdir(directory, 0700) != 0)
            return failed(directory, error);
    for (const auto &[path, text] : files)
        if (!write_text(path.c_str(), text))
            return failed(path, error);
    return true;
}

bool read_packages(const std::string &directory, private_files &files, std::string &error)
{
    struct stat info {};
    if (stat(directory.c_str(), &info) != 0)
        return failed(directory, error);
    if (!S_ISDIR(info.st_mode)) {
        error = directory + ": is no directory";
        return false;
    }
    for (const std::string package : wifi_written_packages())
        if (!read_package(directory + "/" + package, files["/etc/config/" + package], error))
            return false;
    return true;
}

bool enter_private_root(const private_files &files, std::string &error)
{
    constexpr char DENIED[] = "this system allows this user no namespaces to try it in";
    if (!leave_namespaces() || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", ROOT, "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=700") != 0 ||
        chroot(ROOT) != 0 || chdir("/") != 0)
        return failed(DENIED, error);
    return fill(files, error);
}
