// Child processes. A SIGCHLD reaps every child there is, registered or not: one signal may stand
// for several children.
#include <cerrno>
#include <sys/wait.h>

#include "uloop_internal.h"

bool uloop_handle_sigchld = true;

static list_head processes = LIST_HEAD_INIT(processes);
static volatile sig_atomic_t child_ended = 0;

static void on_sigchld(int)
{
    child_ended = 1;
    uloop_signal_wake();
}

void uloop_process_open()
{
    if (uloop_handle_sigchld)
        uloop_signal_take(SIGCHLD, on_sigchld);
}

void uloop_process_close()
{
    uloop_signal_give_back(SIGCHLD, on_sigchld);
    uloop_process *p, *next;
    list_for_each_entry_safe(p, next, &processes, list)(void) uloop_process_delete(p);
}

int uloop_process_add(uloop_process *p)
{
    if (p->pending)
        return -1;
    list_add_tail(&p->list, &processes);
    p->pending = true;
    return 0;
}

int uloop_process_delete(uloop_process *p)
{
    if (!p->pending)
        return -1;
    list_del(&p->list);
    p->pending = false;
    return 0;
}

/// Callbacks may add and delete any record: the list is taken from the front and put back behind a
/// mark, so that nothing points into it meanwhile and what is added now is not reported.
static void report(pid_t pid, int status)
{
    uloop_process mark = {};
    list_add_tail(&mark.list, &processes);
    for (uloop_process *p; (p = list_first_entry(&processes, uloop_process, list)) != &mark;) {
        list_move_tail(&p->list, &processes);
        if (p->pid != pid)
            continue;
        uloop_process_delete(p);
        if (p->cb)
            p->cb(p, status);
    }
    list_del(&mark.list);
}

void uloop_process_reap()
{
    if (!child_ended)
        return;
    child_ended = 0;
    for (;;) {
        int status;
        pid_t pid = waitpid(-1, &status, WNOHANG);
        if (pid > 0)
            report(pid, status);
        else if (pid == 0 || errno != EINTR)
            return;
    }
}
