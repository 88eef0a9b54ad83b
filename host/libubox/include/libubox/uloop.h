/* The event loop: descriptors, timers, child processes and signals of one thread.
 *
 * The records are the caller's and must be zero-initialised; only cb, fd, pid, signo (and, with
 * uloop_timeout_add, time) are set by hand. A record may be cancelled, deleted and freed inside its
 * own callback. */
#pragma once

#include <signal.h>
#include <sys/time.h>
#include <sys/types.h>

#include "list.h"

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EDGE_TRIGGER (1 << 2)
#define ULOOP_BLOCKING (1 << 3) /* leave O_NONBLOCK alone */
#define ULOOP_EVENT_MASK (ULOOP_READ | ULOOP_WRITE)
#define ULOOP_ERROR_CB (1 << 6) /* stay registered after a hang-up or an error */

struct uloop_fd;
struct uloop_timeout;
struct uloop_process;
struct uloop_signal;

typedef void (*uloop_fd_handler)(struct uloop_fd *u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *t);
typedef void (*uloop_process_handler)(struct uloop_process *c, int ret);
typedef void (*uloop_signal_handler)(struct uloop_signal *s);

struct uloop_fd {
    uloop_fd_handler cb;
    int fd;
    bool eof;   /* the peer of a stream socket will send no more */
    bool error; /* hang-up or error */
    bool registered;
    uint8_t flags;
};

struct uloop_timeout {
    struct list_head list;
    bool pending;
    uloop_timeout_handler cb;
    struct timeval time; /* CLOCK_MONOTONIC */
};

struct uloop_process {
    struct list_head list;
    bool pending;
    uloop_process_handler cb; /* gets the status as waitpid has it */
    pid_t pid;
};

struct uloop_signal {
    struct list_head list;
    struct sigaction orig;
    bool pending;
    uloop_signal_handler cb; /* runs from the loop, not from the signal handler */
    int signo;
};

#ifdef __cplusplus
extern "C" {
#endif

extern bool uloop_cancelled;
/* Clear before uloop_init to leave SIGCHLD alone. */
extern bool uloop_handle_sigchld;
/* When set, told the flags of each uloop_fd_add, and 0 for a delete. */
extern uloop_fd_handler uloop_fd_set_cb;

/* Prepares the loop and takes SIGINT, SIGTERM and SIGCHLD where their disposition is still the
 * default. Harmless when repeated. 0 or -1. */
int uloop_init(void);
/* Releases the loop, restores the signals, forgets timers and processes. Descriptors stay marked
 * registered: delete them before they are added to a new loop. */
void uloop_done(void);

/* Forgets an earlier uloop_end, then runs until the next one or until SIGTERM or SIGINT, whose
 * number it returns. With a limit of 0 ms or more: one round, that is due timers, a wait of at most
 * that long, and at most one descriptor's callback. */
int uloop_run_timeout(int timeout);
static inline int uloop_run(void)
{
    return uloop_run_timeout(-1);
}
static inline void uloop_end(void)
{
    uloop_cancelled = true;
}
/* True inside a run that has been told to end. */
bool uloop_cancelling(void);
/* Milliseconds to the next timer: 0 when it is due, -1 when there is none. */
int uloop_get_next_timeout(void);

/* Watches u->fd for ULOOP_READ, ULOOP_WRITE or both; again to change the flags; neither deletes.
 * Sets O_NONBLOCK at the first time, unless ULOOP_BLOCKING. 0 or -1. */
int uloop_fd_add(struct uloop_fd *u, unsigned int flags);
/* Also drops events that were fetched already. Delete before the descriptor is closed. 0 or -1. */
int uloop_fd_delete(struct uloop_fd *u);

/* (Re)arms the timer, `msecs` from now. 0. */
int uloop_timeout_set(struct uloop_timeout *t, int msecs);
/* Arms it for t->time. -1 when it is pending. */
int uloop_timeout_add(struct uloop_timeout *t);
/* -1 when it is not pending. */
int uloop_timeout_cancel(struct uloop_timeout *t);
/* Milliseconds left, negative when overdue; -1 when it is not pending. */
int64_t uloop_timeout_remaining64(struct uloop_timeout *t);

/* Reports the end of child p->pid. -1 when pending. The loop reaps every child of the process,
 * registered or not. */
int uloop_process_add(struct uloop_process *p);
/* Neither kills nor waits. -1 when not pending. */
int uloop_process_delete(struct uloop_process *p);

/* Takes over signal s->signo; several records may share one. 0 or -1. */
int uloop_signal_add(struct uloop_signal *s);
/* Gives the signal its former disposition back with the last record. 0 or -1. */
int uloop_signal_delete(struct uloop_signal *s);

#ifdef __cplusplus
}
#endif
