// Connection, objects and small helpers of the simulated neighbours; faults are in peer_fault.cpp.
#include "peer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <uci.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "peer_fault.h"

constexpr int RETRY_MS = 1000;

static ubus_auto_conn connection;
static std::vector<std::unique_ptr<peer_object>> objects;
static std::string peer_name;

static void settle_objects(uloop_timeout *timer);
static uloop_timeout settle_timer = {
    .list = {}, .pending = false, .cb = settle_objects, .time = {}};

static bool settle_object(peer_object &object)
{
    if (object.withdrawn)
        return object.object.id == 0 || ubus_remove_object(&connection.ctx, &object.object) == 0;
    return object.object.id != 0 || ubus_add_object(&connection.ctx, &object.object) == 0;
}

/// Brings the bus in line with the list; what fails because the broker is away is tried again.
static void settle_objects(uloop_timeout *)
{
    if (connection.ctx.sock.fd <= 0)
        return;
    bool settled = true;
    for (auto &object : objects)
        settled = settle_object(*object) && settled;
    std::erase_if(objects, [](auto &object) { return object->withdrawn && !object->object.id; });
    if (!settled)
        uloop_timeout_set(&settle_timer, RETRY_MS);
}

static void connected(ubus_context *)
{
    settle_objects(nullptr);
}

static int dispatch(ubus_context *, ubus_object *target, ubus_request_data *request,
                    const char *method, blob_attr *msg)
{
    peer_object *object = peer_find(target->name);
    if (!object)
        return UBUS_STATUS_NOT_FOUND;
    if (std::string(method) == "sim")
        return peer_fault_set(msg);
    return peer_fault_answer(*object, request, method, msg);
}

static void write_pid_file()
{
    std::string path = "/var/run/" + peer_name + ".pid";
    if (FILE *file = fopen(path.c_str(), "we")) {
        fprintf(file, "%d\n", getpid());
        fclose(file);
    }
}

int peer_run(const char *name, void (*start)())
{
    peer_name = name;
    write_pid_file();
    uloop_init();
    connection.cb = connected;
    ubus_auto_connect(&connection);
    start();
    uloop_run();
    ubus_auto_shutdown(&connection);
    uloop_done();
    return 0;
}

ubus_context *peer_bus()
{
    return &connection.ctx;
}

peer_object *peer_publish(const std::string &path, std::span<const peer_method> methods,
                          peer_handler handler)
{
    auto object = std::make_unique<peer_object>();
    object->path = path;
    object->handler = handler;
    for (auto &method : methods)
        object->methods.push_back({.name = method.name,
                                   .handler = dispatch,
                                   .mask = 0,
                                   .tags = 0,
                                   .policy = method.arguments.data(),
                                   .n_policy = static_cast<int>(method.arguments.size())});
    object->methods.push_back(peer_fault_method(dispatch));
    object->type.name = object->path.c_str();
    object->type.methods = object->methods.data();
    object->type.n_methods = static_cast<int>(object->methods.size());
    object->object.name = object->path.c_str();
    object->object.type = &object->type;
    object->object.methods = object->type.methods;
    object->object.n_methods = object->type.n_methods;
    objects.push_back(std::move(object));
    peer_object *published = objects.back().get();
    settle_objects(nullptr);
    return published;
}

void peer_withdraw(peer_object *object)
{
    object->withdrawn = true;
    settle_objects(nullptr);
}

peer_object *peer_find(const std::string &path)
{
    auto found = std::find_if(objects.begin(), objects.end(), [&](auto &object) {
        return object->path == path && !object->withdrawn;
    });
    return found == objects.end() ? nullptr : found->get();
}

void peer_notify(peer_object *object, const char *type, blob_attr *msg)
{
    if (object->object.id)
        peer_fault_notify(*object, type, msg);
}

void peer_journal(const std::string &text)
{
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    FILE *file = fopen("/var/log/journal", "ae");
    if (!file)
        return;
    fprintf(file, "%ld.%02ld %s %s\n", static_cast<long>(now.tv_sec), now.tv_nsec / 10000000,
            peer_name.c_str(), text.c_str());
    fclose(file);
}

std::string peer_json(blob_attr *msg)
{
    std::unique_ptr<char, decltype(&free)> text(msg ? blobmsg_format_json(msg, true) : nullptr,
                                                free);
    return text ? text.get() : "{}";
}

static blob_attr *member(blob_attr *msg, const char *name, enum blobmsg_type type)
{
    const blobmsg_policy policy = {name, type};
    blob_attr *found = nullptr;
    if (msg)
        blobmsg_parse(&policy, 1, &found, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    return found;
}

std::string peer_string(blob_attr *msg, const char *name, const char *fallback)
{
    blob_attr *found = member(msg, name, BLOBMSG_TYPE_STRING);
    return found ? blobmsg_get_string(found) : fallback;
}

int peer_int(blob_attr *msg, const char *name, int fallback)
{
    if (blob_attr *found = member(msg, name, BLOBMSG_TYPE_INT32))
        return static_cast<int>(blobmsg_get_u32(found));
    if (blob_attr *found = member(msg, name, BLOBMSG_TYPE_BOOL))
        return blobmsg_get_bool(found);
    return fallback;
}

std::vector<peer_section> peer_uci_sections(const char *package)
{
    std::vector<peer_section> sections;
    std::unique_ptr<uci_context, decltype(&uci_free_context)> ctx(uci_alloc_context(),
                                                                  uci_free_context);
    uci_package *loaded = nullptr;
    if (!ctx || uci_load(ctx.get(), package, &loaded) != 0 || !loaded)
        return sections;
    uci_element *element;
    uci_foreach_element(&loaded->sections, element)
    {
        peer_section section = {.name = element->name, .options = {}};
        uci_element *option;
        uci_foreach_element(&uci_to_section(element)->options, option)
        {
            if (uci_to_option(option)->type == UCI_TYPE_STRING)
                section.options[option->name] = uci_to_option(option)->v.string;
        }
        sections.push_back(std::move(section));
    }
    return sections;
}

std::string peer_option(const peer_section &section, const char *name)
{
    auto found = section.options.find(name);
    return found == section.options.end() ? "" : found->second;
}

void peer_shell(const std::string &command)
{
    int status = system(command.c_str());
    if (status != 0)
        fprintf(stderr, "%s: '%s' ended with %d\n", peer_name.c_str(), command.c_str(), status);
}
