// libcurl driven by the event loop: it names the sockets it waits for and one time-out, the loop
// reports them, and finished transfers are collected after each report.
//
// libcurl is never called from inside one of its own callbacks, and a transfer's callback runs when
// libcurl holds nothing of it any more; that makes every call allowed there. After each callback
// nothing but the context is trusted to exist.
#include "platform/zu/uloop_curl.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <sys/socket.h>

#include "platform/zu/log.h"

/// A socket libcurl waits for. Made and dropped as libcurl says.
struct curl_socket {
    uloop_fd watch;
    uloop_curl_context *context;
    list_head list;
};

/// Runs the callbacks of the transfers that have ended.
static void collect_finished(uloop_curl_context *context)
{
    int queued = 0;
    // A callback may clean the context up: `multi` is looked at again each time.
    while (context->multi) {
        const CURLMsg *message = curl_multi_info_read(context->multi, &queued);
        if (!message)
            return;
        if (message->msg != CURLMSG_DONE)
            continue;
        uloop_curl_easy *easy = nullptr;
        const CURLcode result = message->data.result;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &easy);
        curl_multi_remove_handle(context->multi, message->easy_handle);
        list_del(&easy->list);
        easy->started = false;
        easy->result = result;
        if (easy->cb)
            easy->cb(easy);
    }
}

/// Takes a started transfer out of libcurl's hands.
static void unstart(uloop_curl_easy *easy)
{
    curl_multi_remove_handle(easy->context->multi, easy->easy);
    list_del_init(&easy->list);
    easy->started = false;
}

static void end(uloop_curl_easy *easy, CURLcode result)
{
    unstart(easy);
    easy->result = result;
    if (easy->cb)
        easy->cb(easy);
}

static uloop_curl_easy *find_unwatched(uloop_curl_context *context)
{
    uloop_curl_easy *easy;
    list_for_each_entry(easy, &context->easies, list)
    {
        if (easy->unwatched)
            return easy;
    }
    return nullptr;
}

/// Ends the transfers that would wait for a socket that the loop does not watch.
static void end_unwatched(uloop_curl_context *context)
{
    while (context->multi) {
        uloop_curl_easy *easy = find_unwatched(context);
        if (!easy)
            return;
        end(easy, CURLE_COULDNT_CONNECT);
    }
}

static void report(uloop_curl_context *context, curl_socket_t fd, int events)
{
    int running = 0;
    const CURLMcode code = curl_multi_socket_action(context->multi, fd, events, &running);
    if (code != CURLM_OK)
        log_warning("libcurl refused an event: %s", curl_multi_strerror(code));
    collect_finished(context);
    end_unwatched(context);
}

static void socket_ready_cb(uloop_fd *watch, unsigned int events)
{
    // libcurl may drop the record of the socket while it handles the event.
    uloop_curl_context *context = container_of(watch, curl_socket, watch)->context;
    int curl_events = watch->error || events == 0 ? CURL_CSELECT_ERR : 0;
    if (events & ULOOP_READ)
        curl_events |= CURL_CSELECT_IN;
    if (events & ULOOP_WRITE)
        curl_events |= CURL_CSELECT_OUT;
    report(context, watch->fd, curl_events);
}

static void timeout_cb(uloop_timeout *timer)
{
    report(container_of(timer, uloop_curl_context, timer), CURL_SOCKET_TIMEOUT, 0);
}

static void socket_drop(curl_socket *socket)
{
    uloop_fd_delete(&socket->watch);
    list_del(&socket->list);
    delete socket;
}

static curl_socket *socket_add(uloop_curl_context *context, curl_socket_t fd)
{
    auto *socket = new (std::nothrow) curl_socket{};
    if (!socket)
        return nullptr;
    socket->context = context;
    socket->watch.fd = fd;
    socket->watch.cb = socket_ready_cb;
    list_add_tail(&socket->list, &context->sockets);
    curl_multi_assign(context->multi, fd, socket);
    return socket;
}

/// Keeps a socket in the loop when its peer hangs up: what becomes of it is libcurl's to say.
static int socket_watch(curl_socket *socket, int what)
{
    unsigned int flags = ULOOP_ERROR_CB;
    if (what & CURL_POLL_IN)
        flags |= ULOOP_READ;
    if (what & CURL_POLL_OUT)
        flags |= ULOOP_WRITE;
    if (uloop_fd_add(&socket->watch, flags) == 0)
        return 0;
    // The number was closed and used again since it was registered.
    uloop_fd_delete(&socket->watch);
    return uloop_fd_add(&socket->watch, flags);
}

/// libcurl's wish about one socket. It is never refused: libcurl would give up all transfers, and
/// end none. The one that the socket belongs to is ended when libcurl has returned.
static int socket_cb(CURL *handle, curl_socket_t fd, int what, void *context_ptr, void *socket_ptr)
{
    auto *context = static_cast<uloop_curl_context *>(context_ptr);
    auto *socket = static_cast<curl_socket *>(socket_ptr);
    if (what == CURL_POLL_REMOVE) {
        if (socket)
            socket_drop(socket);
        return 0;
    }
    if (!socket)
        socket = socket_add(context, fd);
    if (socket && socket_watch(socket, what) == 0)
        return 0;
    log_error("Failed to watch a socket of libcurl: %s", strerror(errno));
    uloop_curl_easy *easy = nullptr;
    if (curl_easy_getinfo(handle, CURLINFO_PRIVATE, &easy) == CURLE_OK && easy)
        easy->unwatched = true;
    return 0;
}

/// The loop's timers fire up to one millisecond early, at which libcurl would have nothing to do.
static int timer_cb(CURLM *, long timeout_ms, void *context_ptr)
{
    auto *context = static_cast<uloop_curl_context *>(context_ptr);
    if (timeout_ms < 0)
        uloop_timeout_cancel(&context->timer);
    else if (timeout_ms == 0)
        uloop_timeout_set(&context->timer, 0);
    else
        uloop_timeout_set(&context->timer,
                          timeout_ms < INT_MAX ? static_cast<int>(timeout_ms) + 1 : INT_MAX);
    return 0;
}

static curl_socket_t open_socket_cb(void *, curlsocktype, curl_sockaddr *address)
{
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

/// Once for the process; what it sets up lives as long as that does.
static bool library_ready()
{
    static bool ready;
    if (ready)
        return true;
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK)
        return false;
    const curl_version_info_data *info = curl_version_info(CURLVERSION_NOW);
    if (!(info->features & CURL_VERSION_ASYNCHDNS))
        log_warning("This libcurl blocks the daemon while it resolves a name");
    ready = true;
    return true;
}

/// What holds for every transfer of the daemon.
static CURLcode set_defaults(uloop_curl_easy *easy)
{
    CURL *handle = easy->easy;
    int failed = curl_easy_setopt(handle, CURLOPT_PRIVATE, easy);
    failed |= curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    failed |= curl_easy_setopt(handle, CURLOPT_PROXY, "");
    failed |= curl_easy_setopt(handle, CURLOPT_DEFAULT_PROTOCOL, "http");
    failed |= curl_easy_setopt(handle, CURLOPT_OPENSOCKETFUNCTION, open_socket_cb);
#if LIBCURL_VERSION_NUM >= 0x075500
    failed |= curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
#else
    failed |= curl_easy_setopt(handle, CURLOPT_PROTOCOLS, CURLPROTO_HTTP | CURLPROTO_HTTPS);
#endif
#if LIBCURL_VERSION_NUM >= 0x075700
    // Without it libcurl waits for a resolver thread when a transfer ends before its name is found.
    failed |= curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
#endif
    return static_cast<CURLcode>(failed);
}

int uloop_curl_init(uloop_curl_context *context)
{
    uloop_curl_cleanup(context);
    CURLM *multi = library_ready() ? curl_multi_init() : nullptr;
    if (!multi) {
        log_error("Failed to set up libcurl");
        return -1;
    }
    INIT_LIST_HEAD(&context->sockets);
    INIT_LIST_HEAD(&context->easies);
    context->multi = multi;
    context->timer.cb = timeout_cb;
    curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, socket_cb);
    curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, context);
    curl_multi_setopt(multi, CURLMOPT_TIMERFUNCTION, timer_cb);
    curl_multi_setopt(multi, CURLMOPT_TIMERDATA, context);
    return 0;
}

void uloop_curl_cleanup(uloop_curl_context *context)
{
    if (!context->multi || context->closing)
        return;
    context->closing = true;
    while (!list_empty(&context->easies))
        uloop_curl_easy_abort(list_first_entry(&context->easies, uloop_curl_easy, list));
    // Closes the idle connections, which still reports their sockets to socket_cb.
    curl_multi_cleanup(context->multi);
    uloop_timeout_cancel(&context->timer);
    while (!list_empty(&context->sockets))
        socket_drop(list_first_entry(&context->sockets, curl_socket, list));
    *context = {};
}

int uloop_curl_easy_create(uloop_curl_context *context, uloop_curl_easy *easy)
{
    if (easy->started) {
        log_error("The transfer is in use");
        return -1;
    }
    easy->context = context;
    easy->result = CURLE_OK;
    easy->unwatched = false;
    easy->easy = curl_easy_init();
    if (!easy->easy || set_defaults(easy) != CURLE_OK) {
        log_error("Failed to set up a transfer");
        uloop_curl_easy_destroy(easy);
        return -1;
    }
    return 0;
}

int uloop_curl_easy_start(uloop_curl_easy *easy)
{
    uloop_curl_context *context = easy->context;
    if (!easy->easy || easy->started || !context->multi || context->closing) {
        log_error("The transfer cannot be started");
        return -1;
    }
    const CURLMcode code = curl_multi_add_handle(context->multi, easy->easy);
    if (code != CURLM_OK) {
        log_error("Failed to start a transfer: %s", curl_multi_strerror(code));
        return -1;
    }
    easy->started = true;
    list_add_tail(&easy->list, &context->easies);
    return 0;
}

void uloop_curl_easy_abort(uloop_curl_easy *easy)
{
    if (easy->started)
        end(easy, CURLE_ABORTED_BY_CALLBACK);
}

void uloop_curl_easy_destroy(uloop_curl_easy *easy)
{
    if (easy->started)
        unstart(easy);
    curl_easy_cleanup(easy->easy);
    easy->easy = nullptr;
}
