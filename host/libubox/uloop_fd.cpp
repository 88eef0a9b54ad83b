// Descriptors on epoll. The kernel's events are fetched several at a time but handed out one a
// round, so that timers get their turn in between.
#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include "uloop_internal.h"

constexpr int EVENTS_PER_WAIT = 10;

/// A callback that is running, linked to the one it interrupted.
struct running_cb {
    running_cb *outer;
    uloop_fd *fd;    ///< null once the callback deleted it: the record may be gone
    bool again;      ///< an edge came meanwhile
    unsigned events; ///< of those edges
};

uloop_fd_handler uloop_fd_set_cb = nullptr;

static int poll_fd = -1;
static epoll_event fetched[EVENTS_PER_WAIT];
static int fetched_next = 0;
static int fetched_end = 0;
static running_cb *running = nullptr;

int uloop_fd_open()
{
    if (poll_fd < 0)
        poll_fd = epoll_create1(EPOLL_CLOEXEC);
    return poll_fd < 0 ? -1 : 0;
}

void uloop_fd_close()
{
    if (poll_fd >= 0)
        close(poll_fd);
    poll_fd = -1;
    fetched_next = fetched_end = 0;
}

static void set_nonblocking(int fd)
{
    int flags = fcntl(fd, F_GETFL);
    if (flags >= 0)
        (void)fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

static epoll_event wanted_events(uloop_fd *u, unsigned flags)
{
    epoll_event event = {};
    event.data.ptr = u;
    if (flags & ULOOP_READ)
        event.events |= EPOLLIN | EPOLLRDHUP;
    if (flags & ULOOP_WRITE)
        event.events |= EPOLLOUT;
    if (flags & ULOOP_EDGE_TRIGGER)
        event.events |= EPOLLET;
    return event;
}

int uloop_fd_add(uloop_fd *u, unsigned int flags)
{
    if (!(flags & ULOOP_EVENT_MASK))
        return uloop_fd_delete(u);
    if (!u->registered && !(flags & ULOOP_BLOCKING))
        set_nonblocking(u->fd);
    if (uloop_fd_set_cb)
        uloop_fd_set_cb(u, flags);

    epoll_event event = wanted_events(u, flags);
    if (epoll_ctl(poll_fd, u->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, u->fd, &event) < 0)
        return -1;
    u->flags = static_cast<uint8_t>(flags);
    u->registered = true;
    u->eof = false;
    u->error = false;
    return 0;
}

/// Nothing points to the record afterwards: it may be freed.
static void forget(const uloop_fd *u)
{
    for (int i = fetched_next; i < fetched_end; i++) {
        if (fetched[i].data.ptr == u)
            fetched[i].data.ptr = nullptr;
    }
    for (running_cb *cb = running; cb; cb = cb->outer) {
        if (cb->fd == u)
            cb->fd = nullptr;
    }
}

static int unregister(uloop_fd *u)
{
    if (uloop_fd_set_cb)
        uloop_fd_set_cb(u, 0);
    u->registered = false;
    u->flags = 0;
    return epoll_ctl(poll_fd, EPOLL_CTL_DEL, u->fd, nullptr);
}

int uloop_fd_delete(uloop_fd *u)
{
    forget(u);
    return u->registered ? unregister(u) : 0;
}

static running_cb *running_of(const uloop_fd *u)
{
    running_cb *cb = running;
    while (cb && cb->fd != u)
        cb = cb->outer;
    return cb;
}

static void run_cb(uloop_fd *u, unsigned events)
{
    running_cb self = {running, u, false, events};
    running = &self;
    do {
        unsigned now = self.events;
        self.again = false;
        self.events = 0;
        u->cb(u, now);
    } while (self.fd && self.again);
    running = self.outer;
}

/// Hands one event to its callback. A hang-up or an error takes the descriptor out of the loop
/// first, or it would be reported for ever.
static void dispatch(uloop_fd *u, uint32_t happened)
{
    bool edge_triggered = u->flags & ULOOP_EDGE_TRIGGER;
    if (happened & EPOLLRDHUP)
        u->eof = true;
    if (happened & (EPOLLERR | EPOLLHUP)) {
        u->error = true;
        if (!(u->flags & ULOOP_ERROR_CB))
            (void)unregister(u);
    }
    if (!u->cb)
        return;

    unsigned events = 0;
    if (happened & EPOLLIN)
        events |= ULOOP_READ;
    if (happened & EPOLLOUT)
        events |= ULOOP_WRITE;
    running_cb *outer = edge_triggered ? running_of(u) : nullptr;
    if (outer) {
        outer->again = true;
        outer->events |= events;
        return;
    }
    run_cb(u, events);
}

void uloop_fd_run_one(int timeout_ms)
{
    if (fetched_next == fetched_end) {
        int count = uloop_clock_wait(poll_fd, fetched, EVENTS_PER_WAIT, timeout_ms);
        fetched_next = 0;
        fetched_end = count > 0 ? count : 0;
    }
    while (fetched_next < fetched_end) {
        epoll_event event = fetched[fetched_next++];
        if (!event.data.ptr)
            continue;
        dispatch(static_cast<uloop_fd *>(event.data.ptr), event.events);
        return;
    }
}
