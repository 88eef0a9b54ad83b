// Four calls to the daemon, and reading what they answer.
#include "facts.h"

#include <cstdlib>
#include <libubus.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

constexpr int CALL_LIMIT_MS = 5000;

struct bus_release {
    void operator()(ubus_context *ctx) const { ubus_free(ctx); }
};
using bus_handle = std::unique_ptr<ubus_context, bus_release>;

static void answer_cb(ubus_request *req, int, blob_attr *msg)
{
    if (!msg)
        return;
    auto *answer = static_cast<json_object **>(req->priv);
    json_object_put(*answer); // when two answers come, the last one counts
    char *text = blobmsg_format_json(msg, true);
    *answer = text ? json_tokener_parse(text) : nullptr;
    free(text);
}

/// The bus's status, and what the method answers if it does.
static int ask(ubus_context *ctx, const char *object, const char *method, const char *type,
               json_object **answer)
{
    uint32_t id = 0;
    blob_buf message{};
    blob_buf_init(&message, 0);
    if (type)
        blobmsg_add_string(&message, "checkin_type", type);
    int status = ubus_lookup_id(ctx, object, &id);
    if (status == UBUS_STATUS_OK)
        status = ubus_invoke(ctx, id, method, message.head, answer_cb, answer, CALL_LIMIT_MS);
    blob_buf_free(&message);
    return status;
}

/// The one key that dump_state shows to everybody.
static void drop_roaming_keys(json_object *all)
{
    json_object *ssids = facts_get(all, {"wifi", "settings", "ssids"});
    for (size_t i = 0; i < facts_count(ssids); i++)
        json_object_object_del(json_object_array_get_idx(ssids, i), "roaming_key");
}

json_handle facts_ask(std::string *why)
{
    const bus_handle ctx(ubus_connect(nullptr));
    if (!ctx) {
        *why = "the bus is not there: see whether ubusd runs";
        return nullptr;
    }
    const struct {
        const char *key, *object, *method, *type;
    } calls[] = {
        {"wired", "qnet.wired", "dump_state", nullptr},
        {"wifi", "qnet.wifi", "dump_state", nullptr},
        {"checkin", "qnet.wifi", "gen_checkin", "status"},
        {"health", "qnet.wifi", "health_check", nullptr},
    };
    json_handle all(json_object_new_object());
    for (const auto &call : calls) {
        json_object *answer = nullptr;
        const int status = ask(ctx.get(), call.object, call.method, call.type, &answer);
        if (answer)
            json_object_object_add(all.get(), call.key, answer);
        if (status == UBUS_STATUS_TIMEOUT) // it hangs: the others would wait as long in vain
            break;
    }
    drop_roaming_keys(all.get());
    if (json_object_object_length(all.get()) != 0)
        return all;
    *why = "the daemon does not answer: see whether tarn_net runs, and /tmp/debug_tarn_net.log";
    return nullptr;
}

json_object *facts_get(json_object *from, std::initializer_list<const char *> keys)
{
    for (const char *key : keys) {
        json_object *next = nullptr;
        if (!json_object_is_type(from, json_type_object) ||
            !json_object_object_get_ex(from, key, &next))
            return nullptr;
        from = next;
    }
    return from;
}

/// Bytes of the character at `at` that a terminal only shows; 0: a control character, or none.
static size_t harmless(const std::string &text, size_t at)
{
    const auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(at);
    if (first < 0x80)
        return first >= 0x20 && first != 0x7f ? 1 : 0;
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || at + length > text.size())
        return 0;
    for (size_t i = 1; i < length; i++)
        if ((byte(at + i) & 0xc0) != 0x80)
            return 0;
    return first == 0xc2 && byte(at + 1) < 0xa0 ? 0 : length; // U+0080 to U+009F control, too
}

std::string facts_text(json_object *from, std::initializer_list<const char *> keys,
                       const char *absent)
{
    json_object *value = facts_get(from, keys);
    const std::string raw = value ? json_object_get_string(value) : absent;
    std::string text;
    for (size_t at = 0; at < raw.size();) {
        const size_t length = harmless(raw, at);
        text += length > 0 ? raw.substr(at, length) : "?";
        at += length > 0 ? length : 1;
    }
    return text;
}

int64_t facts_int(json_object *from, std::initializer_list<const char *> keys, int64_t absent)
{
    json_object *value = facts_get(from, keys);
    return value ? json_object_get_int64(value) : absent;
}

double facts_number(json_object *from, std::initializer_list<const char *> keys)
{
    json_object *value = facts_get(from, keys);
    return value ? json_object_get_double(value) : 0;
}

bool facts_is(json_object *from, std::initializer_list<const char *> keys)
{
    json_object *value = facts_get(from, keys);
    return value && json_object_get_boolean(value);
}

size_t facts_count(json_object *array)
{
    return json_object_is_type(array, json_type_array) ? json_object_array_length(array) : 0;
}
