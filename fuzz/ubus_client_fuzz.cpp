// libraries: host_ubus
// The client library against a broker that sends anything: a program with an object, a subscriber,
// an event handler and pending requests reads the input as its socket's stream, then the end.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "libubus.h"

namespace {
// What a broker says while the program sets itself up: the object ids are 0x1001 and following.
std::string word(uint32_t value)
{
    value = htobe32(value);
    return {(const char *)&value, sizeof(value)};
}

std::string message(uint8_t type, uint16_t seq, uint32_t peer, const std::string &body)
{
    const uint16_t wire_seq = htobe16(seq);
    return std::string(1, 0) + (char)type + std::string((const char *)&wire_seq, 2) + word(peer) +
           word((uint32_t)body.size() + 4) + body;
}

std::string set_up_answers()
{
    const std::string done = word(0x01000008) + word(0);
    std::string all = message(UBUS_MSG_HELLO, 0, 0x1000, "");
    for (uint16_t seq = 1; seq <= 3; seq++)
        all += message(UBUS_MSG_DATA, seq, 0, word(0x03000008) + word(0x1000u + seq)) +
               message(UBUS_MSG_STATUS, seq, 0, done);
    return all + message(UBUS_MSG_STATUS, 4, UBUS_SYSTEM_OBJECT_EVENT, done);
}

void data_cb(ubus_request *, int, blob_attr *) {}

int method_cb(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *method,
              blob_attr *msg)
{
    blob_attr *tb;
    static const blobmsg_policy policy = {"a", BLOBMSG_TYPE_UNSPEC};
    (void)blobmsg_parse(&policy, 1, &tb, blob_data(msg), (unsigned)blob_len(msg));
    close(ubus_request_get_caller_fd(req));
    // A call within the handler: the rest of the input is read inside it.
    if (!strcmp(method, "nest"))
        (void)ubus_invoke(ctx, 0x2000, "get", nullptr, data_cb, nullptr, 0);
    return ubus_send_reply(ctx, req, tb) + (int)strlen(method);
}

const ubus_method METHODS[] = {{nullptr, method_cb, 0, 0, nullptr, 0}};
ubus_object object;
ubus_subscriber subscriber;
ubus_event_handler handler;
} // namespace

static ubus_context *ctx;

static int open_listener(sockaddr_un *address)
{
    address->sun_family = AF_UNIX;
    snprintf(address->sun_path, sizeof(address->sun_path), "/tmp/ubus_client_fuzz.%d",
             (int)getpid());
    unlink(address->sun_path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(fd, (const sockaddr *)address, sizeof(*address)) < 0 || listen(fd, 1) < 0)
        abort();
    return fd;
}

static void set_up()
{
    sockaddr_un address{};
    const int listener = open_listener(&address);
    int broker = -1;
    std::thread speaker([&] {
        const std::string answers = set_up_answers();
        broker = accept(listener, nullptr, nullptr);
        (void)!write(broker, answers.data(), answers.size());
    });
    ctx = ubus_connect(address.sun_path);
    object.methods = METHODS;
    object.n_methods = 1;
    subscriber.cb = method_cb;
    handler.cb = [](ubus_context *, ubus_event_handler *, const char *, blob_attr *) {};
    if (!ctx || ubus_add_object(ctx, &object) || ubus_register_subscriber(ctx, &subscriber) ||
        ubus_register_event_handler(ctx, &handler, "*"))
        abort();
    ctx->connection_lost = [](ubus_context *) {};
    speaker.join();
    close(broker);
    close(listener);
    unlink(address.sun_path);
}

// The requests have numbers 1 (a call of object 0x2000) and 2 (a notification).
static void start_requests(ubus_request *call, ubus_notify_request *notification)
{
    ctx->request_seq = 0;
    (void)ubus_invoke_async(ctx, 0x2000, "get", nullptr, call);
    call->data_cb = data_cb;
    call->fd_cb = [](ubus_request *, int fd) { close(fd); };
    ubus_complete_request_async(ctx, call);
    (void)ubus_notify_async(ctx, &object, "n", nullptr, notification);
    notification->status_cb = [](ubus_notify_request *req, int idx, int) {
        if (!req->id[idx])
            req->data_cb = nullptr;
    };
    ubus_complete_request_async(ctx, &notification->req);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // More than this many answers would fill the socket that nobody reads.
    static constexpr size_t LONGEST_INPUT = 4096;
    int ends[2];
    if (size > LONGEST_INPUT)
        return 0;
    if (!ctx)
        set_up();
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) < 0 ||
        dup2(ends[0], ctx->sock.fd) < 0)
        abort();
    close(ends[0]);
    ctx->sock.eof = false;
    ubus_request call;
    ubus_notify_request notification;
    start_requests(&call, &notification);
    (void)!write(ends[1], data, size);
    shutdown(ends[1], SHUT_WR);
    ubus_handle_event(ctx);
    if (!call.status_msg || !notification.req.status_msg || ctx->stack_depth)
        abort(); // the end of the stream ends every request
    close(ends[1]);
    return 0;
}
