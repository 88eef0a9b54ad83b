// ubus: looks at the bus and talks to it from a shell.
// Scripts depend on its output and its exit codes: a status is the exit code, except that a failed
// `call` without a terminal to complain to ends with 256 minus the status.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "libubus.h"

constexpr int EXIT_FAILED = 255;
constexpr int EXIT_USAGE = 254;

struct options {
    const char *socket = nullptr;
    const char *program = nullptr;
    int timeout_s = -1; // -1: the command's own
    bool simple = false;
    bool verbose = false;
    int directions = 3;        // of `monitor`: bit 0 received, bit 1 transmitted
    unsigned types = 0;        // of `monitor`: a bit each, 0: all
    bool is_explained = false; // what the command returns is the exit code alone
};

struct free_memory {
    void operator()(void *memory) const { free(memory); }
};
using json_text = std::unique_ptr<char, free_memory>;

struct message {
    blob_buf b{};
    message() { blob_buf_init(&b, 0); }
    ~message() { blob_buf_free(&b); }
    message(const message &) = delete;
    message &operator=(const message &) = delete;
};

using arguments = std::vector<const char *>;

static options opt;

static void usage()
{
    fprintf(stderr,
            "Usage: %s [OPTIONS] COMMAND [ARGUMENTS]\n"
            "Commands:\n"
            "  list [PATH]                  the objects on the bus; -v: with their methods\n"
            "  call PATH METHOD [JSON]      calls a method and prints what it replies\n"
            "  send ID [JSON]               sends an event\n"
            "  listen [PATTERN...]          prints events as they come\n"
            "  subscribe PATH...            prints what objects notify\n"
            "  wait_for PATH...             waits until all these objects are there\n"
            "  monitor                      prints every message on the bus\n"
            "Options:\n"
            "  -s SOCKET   the broker's socket\n"
            "  -t SECONDS  time limit of call and wait_for (30), listen and subscribe (none)\n"
            "  -S          output for scripts; errors only as the exit code\n"
            "  -v          more output\n"
            "  -m TYPE     monitor: only messages of this type; repeatable\n"
            "  -M r|t      monitor: only messages received or transmitted by the broker\n",
            opt.program);
}

static int explained(int exit_code)
{
    opt.is_explained = true;
    return exit_code;
}

static int bad_arguments()
{
    usage();
    return explained(EXIT_USAGE);
}

/// Runs the loop until a signal, or until the time given with -t is over: success either way.
static int run_until_stopped(ubus_context *ctx)
{
    uloop_timeout timer{};
    timer.cb = [](uloop_timeout *) { uloop_end(); };
    ubus_add_uloop(ctx);
    if (opt.timeout_s > 0)
        uloop_timeout_set(&timer, opt.timeout_s * 1000);
    (void)uloop_run();
    return 0;
}

// list

static const char *argument_type_cb(void *, blob_attr *attr)
{
    if (blobmsg_type(attr) != BLOBMSG_TYPE_INT32)
        return nullptr;
    switch (blobmsg_get_u32(attr)) {
    case BLOBMSG_TYPE_ARRAY:
        return "\"Array\"";
    case BLOBMSG_TYPE_TABLE:
        return "\"Table\"";
    case BLOBMSG_TYPE_STRING:
        return "\"String\"";
    case BLOBMSG_TYPE_INT32:
        return "\"Integer\"";
    case BLOBMSG_TYPE_INT8:
        return "\"Boolean\"";
    default:
        return "\"(unknown)\"";
    }
}

static void print_object_cb(ubus_context *, ubus_object_data *obj, void *)
{
    if (opt.simple || !opt.verbose) {
        printf("%s\n", obj->path);
        return;
    }
    printf("'%s' @%08x\n", obj->path, obj->id);
    blob_attr *method;
    size_t rem;
    blob_for_each_attr(method, obj->signature, rem)
    {
        const json_text text(
            blobmsg_format_json_with_cb(method, false, argument_type_cb, nullptr, -1));
        if (text)
            printf("\t%s\n", text.get());
    }
}

static int list_command(ubus_context *ctx, const arguments &args)
{
    if (args.size() > 1)
        return bad_arguments();
    return ubus_lookup(ctx, args.empty() ? nullptr : args[0], print_object_cb, nullptr);
}

// call, send

static void print_reply_cb(ubus_request *, int, blob_attr *msg)
{
    const json_text text(blobmsg_format_json_indent(msg, true, opt.simple ? -1 : 0));
    if (text)
        printf("%s\n", text.get());
}

/// A failed call says what was called when nobody sits at a terminal.
static int call_failed(const arguments &args, int status)
{
    if (opt.simple || isatty(STDERR_FILENO))
        return status;
    fprintf(stderr, "Command failed: ubus call");
    for (const char *arg : args)
        fprintf(stderr, " %s", arg);
    fprintf(stderr, " (%s)\n", ubus_strerror(status));
    return explained(256 - status);
}

static int call_command(ubus_context *ctx, const arguments &args)
{
    if (args.size() < 2 || args.size() > 3)
        return bad_arguments();
    message msg;
    if (args.size() == 3 && !blobmsg_add_json_from_string(&msg.b, args[2]))
        return call_failed(args, UBUS_STATUS_PARSE_ERROR);
    uint32_t id = 0;
    if (const int status = ubus_lookup_id(ctx, args[0], &id))
        return status;
    const int timeout_s = opt.timeout_s < 0 ? 30 : opt.timeout_s;
    const int status =
        ubus_invoke(ctx, id, args[1], msg.b.head, print_reply_cb, nullptr, timeout_s * 1000);
    return status ? call_failed(args, status) : 0;
}

static int send_command(ubus_context *ctx, const arguments &args)
{
    if (args.empty() || args.size() > 2)
        return bad_arguments();
    message msg;
    if (args.size() == 2 && !blobmsg_add_json_from_string(&msg.b, args[1]))
        return UBUS_STATUS_PARSE_ERROR;
    return ubus_send_event(ctx, args[0], msg.b.head);
}

// listen, subscribe

static void print_named(const char *name, blob_attr *msg)
{
    const json_text text(blobmsg_format_json(msg, true));
    printf("{ \"%s\": %s }\n", name, text ? text.get() : "");
    fflush(stdout);
}

static void event_cb(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg)
{
    print_named(type, msg);
}

static int registering_failed(const char *what, int status)
{
    if (!opt.simple)
        fprintf(stderr, "Error while registering for event '%s': %s\n", what,
                ubus_strerror(status));
    return explained(EXIT_FAILED);
}

static int listen_command(ubus_context *ctx, const arguments &args)
{
    static ubus_event_handler handler;
    const arguments patterns = args.empty() ? arguments{"*"} : args;
    handler.cb = event_cb;
    for (const char *pattern : patterns)
        if (const int status = ubus_register_event_handler(ctx, &handler, pattern))
            return registering_failed(patterns[0], status);
    return run_until_stopped(ctx);
}

static int notification_cb(ubus_context *, ubus_object *, ubus_request_data *, const char *method,
                           blob_attr *msg)
{
    print_named(method, msg);
    return 0;
}

static int subscribe_command(ubus_context *ctx, const arguments &args)
{
    static ubus_subscriber subscriber;
    if (args.empty())
        return explained(EXIT_FAILED);
    subscriber.cb = notification_cb;
    int status = ubus_register_subscriber(ctx, &subscriber);
    for (size_t i = 0; i < args.size() && !status; i++) {
        uint32_t id = 0;
        status = ubus_lookup_id(ctx, args[i], &id);
        if (!status)
            status = ubus_subscribe(ctx, &subscriber, id);
    }
    return status ? registering_failed(args[0], status) : run_until_stopped(ctx);
}

// wait_for

struct waiter {
    ubus_event_handler added{};
    const arguments *paths = nullptr;
    bool complete = false;
};

static bool all_present(ubus_context *ctx, const arguments &paths)
{
    for (const char *path : paths)
        if (ubus_lookup(ctx, path, nullptr, nullptr) != 0)
            return false;
    return true;
}

static void object_added_cb(ubus_context *ctx, ubus_event_handler *ev, const char *, blob_attr *)
{
    auto *w = container_of(ev, waiter, added);
    w->complete = all_present(ctx, *w->paths);
    if (w->complete)
        uloop_end();
}

static int wait_for_command(ubus_context *ctx, const arguments &args)
{
    if (args.empty())
        return bad_arguments();
    waiter w;
    w.paths = &args;
    w.added.cb = object_added_cb;
    // First listen, then look: nothing can come in between.
    if (const int status = ubus_register_event_handler(ctx, &w.added, "ubus.object.add"))
        return status;
    if (all_present(ctx, args))
        return 0;
    if (opt.timeout_s < 0)
        opt.timeout_s = 30;
    (void)run_until_stopped(ctx);
    return w.complete ? 0 : UBUS_STATUS_TIMEOUT;
}

// monitor

static const char *const MESSAGE_NAMES[__UBUS_MSG_LAST] = {
    "hello",      "status",        "data",      "ping",        "lookup", "invoke",
    "add_object", "remove_object", "subscribe", "unsubscribe", "notify", "monitor",
};

struct attribute_name {
    const char *name;
    int type;
};

// How each attribute of a message is shown.
constexpr attribute_name ATTRIBUTES[UBUS_ATTR_MAX] = {
    {nullptr, BLOBMSG_TYPE_UNSPEC},      // UBUS_ATTR_UNSPEC
    {"status", BLOBMSG_TYPE_INT32},      // UBUS_ATTR_STATUS
    {"objpath", BLOBMSG_TYPE_STRING},    // UBUS_ATTR_OBJPATH
    {"objid", BLOBMSG_TYPE_INT32},       // UBUS_ATTR_OBJID
    {"method", BLOBMSG_TYPE_STRING},     // UBUS_ATTR_METHOD
    {"objtype", BLOBMSG_TYPE_INT32},     // UBUS_ATTR_OBJTYPE
    {"signature", BLOBMSG_TYPE_TABLE},   // UBUS_ATTR_SIGNATURE
    {"data", BLOBMSG_TYPE_TABLE},        // UBUS_ATTR_DATA
    {"target", BLOBMSG_TYPE_INT32},      // UBUS_ATTR_TARGET
    {"active", BLOBMSG_TYPE_BOOL},       // UBUS_ATTR_ACTIVE
    {"no_reply", BLOBMSG_TYPE_BOOL},     // UBUS_ATTR_NO_REPLY
    {"subscribers", BLOBMSG_TYPE_ARRAY}, // UBUS_ATTR_SUBSCRIBERS
    {"user", BLOBMSG_TYPE_STRING},       // UBUS_ATTR_USER
    {"group", BLOBMSG_TYPE_STRING},      // UBUS_ATTR_GROUP
};

static void add_subscribers(blob_buf *b, const char *name, const blob_attr *list)
{
    void *array = blobmsg_open_array(b, name);
    blob_attr *cur;
    size_t rem;
    blob_for_each_attr(cur, list, rem)
    {
        blobmsg_add_field(b, BLOBMSG_TYPE_INT32, nullptr, blob_data(cur), (unsigned)blob_len(cur));
    }
    blobmsg_close_array(b, array);
}

static json_text format_attributes(const blob_attr *data)
{
    message shown;
    blob_attr *cur;
    size_t rem;
    blob_for_each_attr(cur, data, rem)
    {
        const unsigned id = blob_id(cur);
        if (id >= UBUS_ATTR_MAX || !ATTRIBUTES[id].name)
            continue;
        if (id == UBUS_ATTR_SUBSCRIBERS)
            add_subscribers(&shown.b, ATTRIBUTES[id].name, cur);
        else
            blobmsg_add_field(&shown.b, ATTRIBUTES[id].type, ATTRIBUTES[id].name, blob_data(cur),
                              (unsigned)blob_len(cur));
    }
    return json_text(blobmsg_format_json(shown.b.head, true));
}

static void monitor_cb(ubus_context *, uint32_t, blob_attr *msg)
{
    static blob_attr_info info[UBUS_MONITOR_MAX];
    for (int i = 0; i < UBUS_MONITOR_MAX; i++)
        info[i].type = i == UBUS_MONITOR_SEND   ? BLOB_ATTR_INT8
                       : i == UBUS_MONITOR_DATA ? BLOB_ATTR_NESTED
                                                : BLOB_ATTR_INT32;
    blob_attr *tb[UBUS_MONITOR_MAX] = {};
    if (blob_parse_untrusted(msg, blob_raw_len(msg), tb, info, UBUS_MONITOR_MAX) !=
        UBUS_MONITOR_MAX)
        return;
    const bool to_client = blob_get_u8(tb[UBUS_MONITOR_SEND]) != 0;
    const uint32_t type = blob_get_u32(tb[UBUS_MONITOR_TYPE]);
    if (!(opt.directions & (to_client ? 2 : 1)))
        return;
    if (opt.types && (type >= 32 || !(opt.types & (1u << type))))
        return;
    const json_text text = format_attributes(tb[UBUS_MONITOR_DATA]);
    printf("%s %08x #%08x %14s: %s\n", to_client ? "->" : "<-",
           blob_get_u32(tb[UBUS_MONITOR_CLIENT]), blob_get_u32(tb[UBUS_MONITOR_PEER]),
           type < __UBUS_MSG_LAST ? MESSAGE_NAMES[type] : "unknown", text ? text.get() : "");
    fflush(stdout);
}

static int monitor_command(ubus_context *ctx, const arguments &args)
{
    if (!args.empty())
        return bad_arguments();
    ctx->monitor_cb = monitor_cb;
    if (const int status = ubus_monitor_start(ctx))
        return status;
    const int result = run_until_stopped(ctx);
    (void)ubus_monitor_stop(ctx);
    return result;
}

// The program.

namespace {

struct command {
    const char *name;
    int (*run)(ubus_context *, const arguments &);
};

} // namespace

constexpr command COMMANDS[] = {
    {"list", list_command},       {"call", call_command},           {"send", send_command},
    {"listen", listen_command},   {"subscribe", subscribe_command}, {"wait_for", wait_for_command},
    {"monitor", monitor_command},
};

static bool add_monitor_type(const char *name)
{
    for (unsigned i = 0; i < __UBUS_MSG_LAST; i++) {
        if (strcmp(MESSAGE_NAMES[i], name) != 0)
            continue;
        opt.types |= 1u << i;
        return true;
    }
    return false;
}

static bool set_option(int letter)
{
    switch (letter) {
    case 's':
        opt.socket = optarg;
        return true;
    case 't':
        opt.timeout_s = atoi(optarg);
        return true;
    case 'S':
        opt.simple = true;
        return true;
    case 'v':
        opt.verbose = true;
        return true;
    case 'm':
        return add_monitor_type(optarg);
    case 'M':
        opt.directions = *optarg == 'r' ? 1 : 2;
        return *optarg == 'r' || *optarg == 't';
    default:
        return false;
    }
}

static const command *find_command(const char *name)
{
    for (const command &c : COMMANDS)
        if (!strcmp(c.name, name))
            return &c;
    return nullptr;
}

static int run_command(const char *name, const arguments &args)
{
    ubus_context *ctx = ubus_connect(opt.socket);
    if (!ctx) {
        if (!opt.simple)
            fprintf(stderr, "Failed to connect to ubus\n");
        return EXIT_FAILED;
    }
    const command *found = find_command(name);
    const int result = found ? found->run(ctx, args) : bad_arguments();
    ubus_free(ctx);
    if (result && !opt.is_explained && !opt.simple)
        fprintf(stderr, "Command failed: %s\n", ubus_strerror(result));
    return result;
}

int main(int argc, char **argv)
{
    opt.program = argv[0];
    for (int letter; (letter = getopt(argc, argv, "vs:t:Sm:M:")) != -1;) {
        if (!set_option(letter)) {
            usage();
            return 1;
        }
    }
    if (optind >= argc) {
        usage();
        return 1;
    }
    return run_command(argv[optind], arguments(argv + optind + 1, argv + argc));
}
