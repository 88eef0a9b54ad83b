// The generic bus methods: what is checked for every package, and the form of each reply.
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"

package_handler gPackage_method_handlers[PACKAGE_HANDLERS_MAX];
int32_t gPackage_method_handlers_index;

const blobmsg_policy ubus_package_parse_config_policy[1] = {{"params", BLOBMSG_TYPE_TABLE}};
const blobmsg_policy ubus_package_reload_config_policy[1] = {{"package", BLOBMSG_TYPE_STRING}};
const blobmsg_policy ubus_package_set_debug_level_policy[1] = {{"level", BLOBMSG_TYPE_INT32}};
const blobmsg_policy ubus_package_gen_checkin_policy[2] = {{"checkin_type", BLOBMSG_TYPE_STRING},
                                                           {"verbose", BLOBMSG_TYPE_INT8}};
const blobmsg_policy ubus_package_dump_state_policy[1] = {{"include_secrets", BLOBMSG_TYPE_INT8}};
const blobmsg_policy ubus_package_maint_window_event_policy[1] = {{"active", BLOBMSG_TYPE_INT8}};

using policy_span = std::span<const blobmsg_policy>;

/// One call of a generic method.
struct package_call {
    ubus_context *ctx;
    ubus_object *object;
    ubus_request_data *request;
    const char *method;
    blob_attr *msg;
};

static const package_callbacks *callbacks_find(const char *object_name)
{
    for (int32_t i = 0; i < gPackage_method_handlers_index && i < PACKAGE_HANDLERS_MAX; i++) {
        const package_handler &handler = gPackage_method_handlers[i];
        if (object_name && strncmp(handler.name, object_name, sizeof handler.name) == 0)
            return handler.callbacks;
    }
    return nullptr;
}

/// UBUS_STATUS_OK with the callback found, or the status that says why it cannot be called.
static int callback_find(const ubus_object *object, package_cb package_callbacks::*slot,
                         package_cb *found)
{
    const package_callbacks *callbacks = callbacks_find(object->name);
    if (!callbacks)
        return UBUS_STATUS_NOT_FOUND;
    *found = callbacks->*slot;
    return *found ? UBUS_STATUS_OK : UBUS_STATUS_NOT_SUPPORTED;
}

/// The name of a policy member that is there with another type, or null.
static const char *wrong_type_find(policy_span policy, blob_attr *msg)
{
    blob_attr *member = nullptr;
    std::size_t rest = 0;
    blobmsg_for_each_attr(member, msg, rest)
    {
        for (const blobmsg_policy &expected : policy)
            if (strcmp(blobmsg_name(member), expected.name) == 0 &&
                blobmsg_type(member) != static_cast<int>(expected.type))
                return expected.name;
    }
    return nullptr;
}

/// Logs why a message is refused; its content stays out of the log, as it may hold secrets.
static bool message_acceptable(const package_call &call, policy_span policy)
{
    if (!zu_blobmsg_valid(call.msg)) {
        log_warning("Refusing %s of %s: the message is malformed or nested too deeply", call.method,
                    call.object->name);
        return false;
    }
    if (const char *name = wrong_type_find(policy, call.msg)) {
        log_warning("Refusing %s of %s: '%s' has the wrong type", call.method, call.object->name,
                    name);
        return false;
    }
    return true;
}

/// UBUS_STATUS_OK with the callback when a call may go on.
static int call_check(const package_call &call, policy_span policy,
                      package_cb package_callbacks::*slot, package_cb *callback)
{
    const int status = callback_find(call.object, slot, callback);
    if (status != UBUS_STATUS_OK)
        return status;
    return message_acceptable(call, policy) ? UBUS_STATUS_OK : UBUS_STATUS_INVALID_ARGUMENT;
}

static int reply_send(const package_call &call, blob_buf *reply)
{
    // Without a head the callback went past what a buffer can hold at all.
    const std::size_t size = reply->head ? blob_pad_len(reply->head) : SIZE_MAX;
    if (size > PACKAGE_REPLY_MAX) {
        log_error("The reply to %s of %s does not fit on the bus: %zu bytes", call.method,
                  call.object->name, size);
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    return ubus_send_reply(call.ctx, call.request, reply->head);
}

constexpr int REPLY_ROOM = 8192;

/// A method that replies with the document its callback makes.
static int document_method(const package_call &call, policy_span policy,
                           package_cb package_callbacks::*slot)
{
    package_cb callback = nullptr;
    int status = call_check(call, policy, slot, &callback);
    if (status != UBUS_STATUS_OK)
        return status;
    blob_buffer reply;
    // Room for most documents: by itself the buffer grows, and is copied, every 256 bytes.
    if (blob_buf_init(&reply, 0) != 0 || !blob_buf_grow(&reply, REPLY_ROOM))
        return UBUS_STATUS_NO_MEMORY;
    status = callback(call.ctx, call.msg, &reply);
    return status == UBUS_STATUS_OK ? reply_send(call, &reply) : status;
}

/// The messages of one parse_config, as unnamed strings.
struct message_lines {
    blob_buffer texts;
    unsigned count = 0;
};

static message_lines *gAnswered; // of the call that is being answered, or null

/// Cut between characters, not within one.
static std::string_view cut_utf8(std::string_view text, std::size_t max)
{
    if (text.size() <= max)
        return text;
    while (max > 0 && (static_cast<unsigned char>(text[max]) & 0xc0) == 0x80)
        max--;
    return text.substr(0, max);
}

static void message_lines_add(const char *message, void *priv)
{
    auto *lines = static_cast<message_lines *>(priv);
    if (++lines->count > PACKAGE_MESSAGES_MAX)
        return;
    const std::string text(cut_utf8(message, PACKAGE_MESSAGE_LENGTH_MAX));
    (void)blobmsg_add_string(&lines->texts, nullptr, text.c_str());
}

static int reply_add_texts(blob_buf *reply, const char *name, const message_lines &lines)
{
    void *array = blobmsg_open_array(reply, name);
    if (!array)
        return -1;
    int failed = zu_blobmsg_copy(reply, lines.texts.head);
    if (lines.count > PACKAGE_MESSAGES_MAX) {
        const std::string rest =
            "and " + std::to_string(lines.count - PACKAGE_MESSAGES_MAX) + " more";
        failed |= blobmsg_add_string(reply, nullptr, rest.c_str());
    }
    blobmsg_close_array(reply, array);
    return failed;
}

static bool has_params(blob_attr *msg)
{
    return zu_blobmsg_member(msg, ubus_package_parse_config_policy[0]) != nullptr;
}

/// Runs the callback and replies; the reply is sent whatever the outcome, which it explains.
static int parse_config_run(const package_call &call, package_cb callback)
{
    blob_buffer reply;
    message_lines lines;
    if (blob_buf_init(&reply, 0) != 0 || blob_buf_init(&lines.texts, 0) != 0)
        return UBUS_STATUS_NO_MEMORY;
    zu_log_set_error_listener(message_lines_add, &lines);
    gAnswered = &lines;
    const int status = callback(call.ctx, call.msg, &reply);
    if (status != UBUS_STATUS_OK && !has_params(call.msg))
        package_explain("The settings document is missing: parse_config takes it as the table "
                        "'params'");
    gAnswered = nullptr;
    zu_log_set_error_listener(nullptr, nullptr);
    if (blobmsg_add_u8(&reply, "success", status == UBUS_STATUS_OK) != 0 ||
        reply_add_texts(&reply, "messages", lines) != 0)
        return UBUS_STATUS_NO_MEMORY;
    const int sent = reply_send(call, &reply);
    return status != UBUS_STATUS_OK ? status : sent;
}

int ubus_parse_config(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                      const char *method, blob_attr *msg)
{
    const package_call call = {ctx, obj, req, method, msg};
    package_cb callback = nullptr;
    // What the message must hold is the package's to say: no policy here.
    const int status = call_check(call, {}, &package_callbacks::parse_config, &callback);
    return status == UBUS_STATUS_OK ? parse_config_run(call, callback) : status;
}

int ubus_reload_config(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                       const char *method, blob_attr *msg)
{
    const package_call call = {ctx, obj, req, method, msg};
    package_cb callback = nullptr;
    const int status = call_check(call, ubus_package_reload_config_policy,
                                  &package_callbacks::reload_config, &callback);
    if (status != UBUS_STATUS_OK)
        return status;
    blob_buffer unsent;
    if (blob_buf_init(&unsent, 0) != 0)
        return UBUS_STATUS_NO_MEMORY;
    return callback(ctx, msg, &unsent);
}

int ubus_set_debug_level(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                         const char *method, blob_attr *msg)
{
    if (!message_acceptable({ctx, obj, req, method, msg}, ubus_package_set_debug_level_policy))
        return UBUS_STATUS_INVALID_ARGUMENT;
    blob_attr *level = zu_blobmsg_member(msg, ubus_package_set_debug_level_policy[0]);
    const auto value = level ? static_cast<int32_t>(blobmsg_get_u32(level)) : -1;
    if (value < 0 || value > ZU_LOG_DEBUG) {
        log_warning("Refusing %s of %s: 'level' is not from 0 to %d", method, obj->name,
                    ZU_LOG_DEBUG);
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    debug_set_level(value);
    return UBUS_STATUS_OK;
}

int ubus_gen_checkin(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                     const char *method, blob_attr *msg)
{
    return document_method({ctx, obj, req, method, msg}, ubus_package_gen_checkin_policy,
                           &package_callbacks::gen_checkin);
}

int ubus_health_check(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                      const char *method, blob_attr *msg)
{
    const package_call call = {ctx, obj, req, method, msg};
    package_cb callback = nullptr;
    int status = call_check(call, {}, &package_callbacks::health_check, &callback);
    if (status != UBUS_STATUS_OK)
        return status;
    blob_buffer problems, reply;
    if (blob_buf_init(&problems, 0) != 0 || blob_buf_init(&reply, 0) != 0)
        return UBUS_STATUS_NO_MEMORY;
    status = callback(ctx, msg, &problems);
    if (status != UBUS_STATUS_OK)
        return status;
    if (blobmsg_add_u8(&reply, "healthy", blob_len(problems.head) == 0) != 0)
        return UBUS_STATUS_NO_MEMORY;
    void *array = blobmsg_open_array(&reply, "problems");
    if (!array || zu_blobmsg_copy(&reply, problems.head) != 0)
        return UBUS_STATUS_NO_MEMORY;
    blobmsg_close_array(&reply, array);
    return reply_send(call, &reply);
}

/// Secrets are the super-user's, whose session a web server or an agent without privileges is not:
/// access lists cannot tell arguments apart. A broker that does not say who calls lets nobody but
/// the super-user call.
static bool may_see_secrets(const ubus_request_data *req, blob_attr *msg)
{
    static const blobmsg_policy RPC_SESSION = {"ubus_rpc_session", BLOBMSG_TYPE_STRING};
    return !zu_blobmsg_member(msg, RPC_SESSION) &&
           (!req->acl.user || strcmp(req->acl.user, "root") == 0);
}

int ubus_dump_state(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                    blob_attr *msg)
{
    if (package_include_secrets(msg) && !may_see_secrets(req, msg)) {
        log_warning("Refusing %s of %s: secrets are not for '%s'", method, obj->name,
                    req->acl.user ? req->acl.user : "a web session");
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    return document_method({ctx, obj, req, method, msg}, ubus_package_dump_state_policy,
                           &package_callbacks::dump_state);
}

void package_explain(const char *text)
{
    if (gAnswered)
        message_lines_add(text, gAnswered);
}

bool package_include_secrets(blob_attr *msg)
{
    blob_attr *include = zu_blobmsg_member(msg, ubus_package_dump_state_policy[0]);
    return include && blobmsg_get_bool(include);
}
