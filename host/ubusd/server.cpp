// The broker's listening socket: who connects becomes a client under the name of its user.
#include <cstdio>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "broker.h"

static uloop_fd listener;
static std::string socket_path;

static std::string user_name(uid_t uid)
{
    const passwd *entry = getpwuid(uid);
    return entry ? entry->pw_name : std::to_string(uid);
}

static std::string group_name(gid_t gid)
{
    const group *entry = getgrgid(gid);
    return entry ? entry->gr_name : std::to_string(gid);
}

static std::vector<std::string> group_names(const std::string &user, gid_t primary)
{
    gid_t ids[64];
    int count = 64;
    if (getgrouplist(user.c_str(), primary, ids, &count) < 0)
        count = 64; // more than fit: the first ones
    std::vector<std::string> names = {group_name(primary)};
    for (int i = 0; i < count; i++)
        names.push_back(group_name(ids[i]));
    return names;
}

static void accept_cb(uloop_fd *u, unsigned)
{
    const int fd = accept4(u->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0)
        return;
    ucred peer{};
    socklen_t len = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &len) < 0) {
        close(fd);
        return;
    }
    const std::string user = user_name(peer.uid);
    // On a development machine the whole bus often belongs to one ordinary user.
    const bool trusted = peer.uid == 0 || peer.uid == geteuid();
    (void)client_add(fd, {user, group_names(user, peer.gid), trusted});
}

/// Creates every missing folder above the socket.
static void make_parent(const std::string &path)
{
    for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1))
        (void)mkdir(path.substr(0, end).c_str(), 0755);
}

static int open_listener(const char *path)
{
    sockaddr_un address;
    if (!wire_address(&address, path)) {
        fprintf(stderr, "ubusd: socket path too long: %s\n", path);
        return -1;
    }
    make_parent(path);
    unlink(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const mode_t old_mask = umask(0111);
    const bool bound = fd >= 0 && bind(fd, (const sockaddr *)&address, sizeof(address)) == 0;
    umask(old_mask);
    if (bound && listen(fd, SOMAXCONN) == 0)
        return fd;
    fprintf(stderr, "ubusd: cannot listen at %s: %m\n", path);
    if (fd >= 0)
        close(fd);
    return -1;
}

int server_start(const char *path)
{
    listener.cb = accept_cb;
    listener.fd = open_listener(path);
    if (listener.fd < 0)
        return -1;
    socket_path = path;
    return uloop_fd_add(&listener, ULOOP_READ);
}

void server_stop()
{
    client_remove_all();
    (void)uloop_fd_delete(&listener);
    close(listener.fd);
    unlink(socket_path.c_str());
}
