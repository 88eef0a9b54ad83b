// Signals. Handlers only take a note and write to a pipe that the loop watches, which ends its wait
// whether the signal came before or during it. SIGTERM and SIGINT end the loop.
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "uloop_internal.h"

static list_head signals = LIST_HEAD_INIT(signals);
static volatile sig_atomic_t caught[NSIG];
static int wake_write_fd = -1;

static void on_wake_cb(uloop_fd *u, unsigned events);
static uloop_fd wake_read = {
    .cb = on_wake_cb, .fd = -1, .eof = false, .error = false, .registered = false, .flags = 0};

void uloop_signal_wake()
{
    int saved = errno;
    // A full pipe wakes the loop just as well.
    (void)!write(wake_write_fd, "", 1);
    errno = saved;
}

static void on_end_signal(int signo)
{
    uloop_end_by_signal(signo);
    uloop_signal_wake();
}

static void on_user_signal(int signo)
{
    caught[signo] = 1;
    uloop_signal_wake();
}

static void set_handler(int signo, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    (void)sigaction(signo, &action, nullptr);
}

static bool handled_by(int signo, void (*handler)(int))
{
    struct sigaction action = {};
    return sigaction(signo, nullptr, &action) == 0 && action.sa_handler == handler;
}

void uloop_signal_take(int signo, void (*handler)(int))
{
    if (handled_by(signo, SIG_DFL))
        set_handler(signo, handler);
}

void uloop_signal_give_back(int signo, void (*handler)(int))
{
    if (handled_by(signo, handler))
        set_handler(signo, SIG_DFL);
}

int uloop_signal_open()
{
    if (wake_write_fd >= 0)
        return 0;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0)
        return -1;
    wake_read.fd = ends[0];
    wake_write_fd = ends[1];
    uloop_signal_take(SIGINT, on_end_signal);
    uloop_signal_take(SIGTERM, on_end_signal);
    uloop_signal_take(SIGPIPE, SIG_IGN);
    return uloop_fd_add(&wake_read, ULOOP_READ);
}

void uloop_signal_close()
{
    uloop_signal *s, *next;
    list_for_each_entry_safe(s, next, &signals, list)(void) uloop_signal_delete(s);
    uloop_signal_give_back(SIGINT, on_end_signal);
    uloop_signal_give_back(SIGTERM, on_end_signal);
    if (wake_write_fd < 0)
        return;
    (void)uloop_fd_delete(&wake_read);
    close(wake_read.fd);
    close(wake_write_fd);
    wake_read.fd = wake_write_fd = -1;
}

static uloop_signal *find(int signo)
{
    uloop_signal *s;
    list_for_each_entry(s, &signals, list)
    {
        if (s->signo == signo)
            return s;
    }
    return nullptr;
}

int uloop_signal_add(uloop_signal *s)
{
    if (s->pending)
        return -1;
    struct sigaction action = {};
    action.sa_handler = on_user_signal;
    if (uloop_signal *same = find(s->signo))
        s->orig = same->orig;
    else if (sigaction(s->signo, &action, &s->orig) < 0)
        return -1;
    list_add_tail(&s->list, &signals);
    s->pending = true;
    return 0;
}

int uloop_signal_delete(uloop_signal *s)
{
    if (!s->pending)
        return -1;
    list_del(&s->list);
    s->pending = false;
    return find(s->signo) ? 0 : sigaction(s->signo, &s->orig, nullptr);
}

/// As for child processes: the list is taken from the front and put back behind a mark, whatever
/// the callbacks add and delete.
static void report(int signo)
{
    uloop_signal mark = {};
    list_add_tail(&mark.list, &signals);
    for (uloop_signal *s; (s = list_first_entry(&signals, uloop_signal, list)) != &mark;) {
        list_move_tail(&s->list, &signals);
        if (s->signo == signo)
            s->cb(s);
    }
    list_del(&mark.list);
}

static void on_wake_cb(uloop_fd *u, unsigned)
{
    char drained[64];
    while (read(u->fd, drained, sizeof(drained)) > 0) {
    }
    for (int signo = 1; signo < NSIG; signo++) {
        if (caught[signo]) {
            caught[signo] = 0;
            report(signo);
        }
    }
}
