// The cloud agent's object qnet.cloud_comm. "checkin" collects the packages' sections into
// /var/sim/checkin.json; "push" {"object", "document", "status"} hands a settings document to a
// package's parse_config and announces the outcome with the event parse_config_status, unless
// "status" is false. The document may be the settings alone or, as the files of examples/ are, the
// whole message with the settings in "params".
#include <fstream>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "peer.h"

static const blobmsg_policy CHECKIN_ARGUMENTS[] = {
    {.name = "checkin_type", .type = BLOBMSG_TYPE_STRING},
    {.name = "delayed", .type = BLOBMSG_TYPE_BOOL}};
static const blobmsg_policy PUSH_ARGUMENTS[] = {{.name = "object", .type = BLOBMSG_TYPE_STRING},
                                                {.name = "document", .type = BLOBMSG_TYPE_TABLE},
                                                {.name = "status", .type = BLOBMSG_TYPE_BOOL}};
static const peer_method METHODS[] = {{"checkin", CHECKIN_ARGUMENTS}, {"push", PUSH_ARGUMENTS}};
constexpr const char *PACKAGES[] = {"qnet.wired", "qnet.wifi"};
constexpr int CALL_LIMIT_MS = 10000;

static void collect_sections(uloop_timeout *);
static uloop_timeout collect_timer = {
    .list = {}, .pending = false, .cb = collect_sections, .time = {}};

static void keep_section(ubus_request *request, int, blob_attr *msg)
{
    *static_cast<std::string *>(request->priv) = peer_json(msg);
}

static std::string section_of(const char *package)
{
    std::string section = "null"; // no such package, no answer, or one without data
    uint32_t id = 0;
    if (ubus_lookup_id(peer_bus(), package, &id) == 0)
        ubus_invoke(peer_bus(), id, "gen_checkin", nullptr, keep_section, &section, CALL_LIMIT_MS);
    return section;
}

/// After the caller got its answer: the sections come from the daemon that asked for the check-in.
static void collect_sections(uloop_timeout *)
{
    std::string sections;
    for (const char *package : PACKAGES)
        sections +=
            std::string(sections.empty() ? "{\"" : ",\"") + package + "\":" + section_of(package);
    std::ofstream("/var/sim/checkin.json") << sections << "}\n";
    peer_journal("checkin collected");
}

static void announce(bool success)
{
    blob_buf event = {};
    blob_buf_init(&event, 0);
    blobmsg_add_u8(&event, "success", success);
    ubus_send_event(peer_bus(), "parse_config_status", event.head);
    blob_buf_free(&event);
}

static void copy_reply(ubus_request *request, int, blob_attr *msg)
{
    auto *reply = static_cast<blob_buf *>(request->priv);
    void *table = blobmsg_open_table(reply, "reply");
    blob_attr *attr;
    size_t rem;
    blob_for_each_attr(attr, msg, rem) blobmsg_add_blob(reply, attr);
    blobmsg_close_table(reply, table);
}

/// The settings in a document: its member "params" or, without one, all of it.
static blob_attr *settings_of(blob_attr *document)
{
    const blobmsg_policy params = {.name = "params", .type = BLOBMSG_TYPE_TABLE};
    blob_attr *settings = nullptr;
    blobmsg_parse(&params, 1, &settings, blobmsg_data(document),
                  static_cast<unsigned>(blobmsg_data_len(document)));
    return settings ? settings : document;
}

static int parse_config(const std::string &object, blob_attr *document, blob_buf *reply)
{
    uint32_t id = 0;
    int status = ubus_lookup_id(peer_bus(), object.c_str(), &id);
    if (status != 0)
        return status;
    blob_buf call = {};
    blob_buf_init(&call, 0);
    blobmsg_add_u8(&call, "enable", true);
    blob_attr *settings = settings_of(document);
    blobmsg_add_field(&call, BLOBMSG_TYPE_TABLE, "params", blobmsg_data(settings),
                      static_cast<unsigned>(blobmsg_data_len(settings)));
    status =
        ubus_invoke(peer_bus(), id, "parse_config", call.head, copy_reply, reply, CALL_LIMIT_MS);
    blob_buf_free(&call);
    return status;
}

static int push(blob_attr *msg, blob_buf *reply)
{
    blob_attr *arguments[std::size(PUSH_ARGUMENTS)];
    blobmsg_parse(PUSH_ARGUMENTS, static_cast<int>(std::size(PUSH_ARGUMENTS)), arguments,
                  blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    if (!arguments[1])
        return UBUS_STATUS_INVALID_ARGUMENT;
    std::string object = peer_string(msg, "object", "qnet.wifi");
    int status = parse_config(object, arguments[1], reply);
    blobmsg_add_u32(reply, "status", static_cast<uint32_t>(status));
    peer_journal("push to " + object + ": " + ubus_strerror(status) + " (node " +
                 std::to_string(peer_int(arguments[1], "node_id", 0)) + ")");
    if (peer_int(msg, "status", 1))
        announce(status == 0);
    return UBUS_STATUS_OK;
}

static int cloud_call(const peer_object &, const std::string &method, blob_attr *msg,
                      blob_buf *reply)
{
    if (method == "push")
        return push(msg, reply);
    peer_journal("checkin " + peer_json(msg));
    uloop_timeout_set(&collect_timer, 10);
    return UBUS_STATUS_OK;
}

static void start()
{
    peer_publish("qnet.cloud_comm", METHODS, cloud_call);
}

int main()
{
    return peer_run("sim_cloud", start);
}
