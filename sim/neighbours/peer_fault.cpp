// Faults: between what a neighbour answers and what the caller gets.
#include "peer_fault.h"

#include <array>
#include <cstdlib>
#include <memory>
#include <unistd.h>

enum fault_kind { NONE, HANG, DIE, LATE, TWICE, WRONG, EMPTY, FAIL };
constexpr std::array<const char *, 8> KIND_NAMES = {"none",  "hang",  "die",   "late",
                                                    "twice", "wrong", "empty", "fail"};
constexpr int FOR_EVER = 0;

struct {
    fault_kind kind;
    int delay_ms;
    std::string method; // empty: every method, but no notification
    std::string object; // empty: every object of the program
    int count;
} fault;

static const blobmsg_policy SIM_ARGUMENTS[] = {
    {.name = "fault", .type = BLOBMSG_TYPE_STRING},
    {.name = "delay_ms", .type = BLOBMSG_TYPE_INT32},
    {.name = "method", .type = BLOBMSG_TYPE_STRING},
    {.name = "count", .type = BLOBMSG_TYPE_INT32},
    {.name = "object", .type = BLOBMSG_TYPE_STRING},
};

struct blob_release {
    void operator()(blob_attr *attr) const { free(attr); }
};
using owned_blob = std::unique_ptr<blob_attr, blob_release>;

// Something to send later; frees itself when done.
struct late_message {
    uloop_timeout timer;
    ubus_request_data request; // of an answer
    std::string path, type;    // of a notification, else empty
    owned_blob data;
    int status;
};

static fault_kind next_fault(const peer_object &object, const std::string &method,
                             bool notification)
{
    bool concerned = fault.method.empty() ? !notification : fault.method == method;
    concerned = concerned && (fault.object.empty() || fault.object == object.path);
    if (!concerned || fault.kind == NONE)
        return NONE;
    fault_kind kind = fault.kind;
    if (fault.count != FOR_EVER && --fault.count == FOR_EVER)
        fault.kind = NONE;
    return kind;
}

static bool has_members(blob_attr *data)
{
    return blob_len(data) > 0;
}

/// The same names with other types, for a caller that trusts what it gets.
static void mangle(blob_attr *good, blob_buf *wrong)
{
    blob_attr *attr;
    size_t rem;
    blob_for_each_attr(attr, good, rem)
    {
        if (blobmsg_type(attr) == BLOBMSG_TYPE_STRING)
            blobmsg_add_u32(wrong, blobmsg_name(attr), 42);
        else
            blobmsg_add_string(wrong, blobmsg_name(attr), "wrong");
    }
}

static void send_late(uloop_timeout *timer)
{
    std::unique_ptr<late_message> late(reinterpret_cast<late_message *>(timer));
    if (!late->path.empty()) {
        if (peer_object *object = peer_find(late->path))
            ubus_notify(peer_bus(), &object->object, late->type.c_str(), late->data.get(), -1);
        return;
    }
    if (has_members(late->data.get()))
        ubus_send_reply(peer_bus(), &late->request, late->data.get());
    ubus_complete_deferred_request(peer_bus(), &late->request, late->status);
}

static late_message *schedule(blob_attr *data)
{
    auto *late = new late_message();
    static_assert(offsetof(late_message, timer) == 0);
    late->timer.cb = send_late;
    late->data.reset(blob_memdup(data));
    uloop_timeout_set(&late->timer, fault.delay_ms);
    return late;
}

static int answer_late(ubus_request_data *request, blob_attr *data, int status)
{
    late_message *late = schedule(data);
    late->status = status;
    ubus_defer_request(peer_bus(), request, &late->request);
    return 0;
}

static int answer_never(ubus_request_data *request)
{
    ubus_request_data forgotten;
    ubus_defer_request(peer_bus(), request, &forgotten);
    return 0;
}

static void send_data(ubus_request_data *request, blob_attr *data, int times)
{
    for (int i = 0; i < times && has_members(data); i++)
        ubus_send_reply(peer_bus(), request, data);
}

static int answer(fault_kind kind, ubus_request_data *request, blob_buf *reply, int status)
{
    switch (kind) {
    case HANG:
        return answer_never(request);
    case LATE:
        return answer_late(request, reply->head, status);
    case WRONG: {
        blob_buf wrong = {};
        blob_buf_init(&wrong, 0);
        mangle(reply->head, &wrong);
        send_data(request, wrong.head, 1);
        blob_buf_free(&wrong);
        return status;
    }
    case EMPTY:
        return status;
    case FAIL:
        return UBUS_STATUS_UNKNOWN_ERROR;
    case DIE:
        _exit(1);
    case TWICE:
    case NONE:
        break;
    }
    send_data(request, reply->head, kind == TWICE ? 2 : 1);
    return status;
}

ubus_method peer_fault_method(ubus_handler_t handler)
{
    return {.name = "sim",
            .handler = handler,
            .mask = 0,
            .tags = 0,
            .policy = SIM_ARGUMENTS,
            .n_policy = static_cast<int>(std::size(SIM_ARGUMENTS))};
}

int peer_fault_set(blob_attr *msg)
{
    std::string name = peer_string(msg, "fault");
    for (size_t i = 0; i < KIND_NAMES.size(); i++) {
        if (name != KIND_NAMES[i])
            continue;
        fault = {.kind = static_cast<fault_kind>(i),
                 .delay_ms = peer_int(msg, "delay_ms", 1000),
                 .method = peer_string(msg, "method"),
                 .object = peer_string(msg, "object"),
                 .count = peer_int(msg, "count", FOR_EVER)};
        return UBUS_STATUS_OK;
    }
    return UBUS_STATUS_INVALID_ARGUMENT;
}

int peer_fault_answer(peer_object &object, ubus_request_data *request, const char *method,
                      blob_attr *msg)
{
    fault_kind kind = next_fault(object, method, false);
    blob_buf reply = {};
    blob_buf_init(&reply, 0);
    int status = object.handler(object, method, msg, &reply);
    status = answer(kind, request, &reply, status);
    blob_buf_free(&reply);
    return status;
}

void peer_fault_notify(peer_object &object, const char *type, blob_attr *msg)
{
    fault_kind kind = next_fault(object, type, true);
    if (kind == HANG)
        return;
    if (kind == DIE)
        _exit(1);
    if (kind == LATE) {
        late_message *late = schedule(msg);
        late->path = object.path;
        late->type = type;
        return;
    }
    ubus_notify(peer_bus(), &object.object, type, msg, -1);
    if (kind == TWICE)
        ubus_notify(peer_bus(), &object.object, type, msg, -1);
}
