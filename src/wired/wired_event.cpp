// A wired port gets its link: the other port is taken down and this one becomes the uplink. Should
// it fail, the other one is brought up again.
#include "wired/wired_event.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/event.h"
#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wired/inet_probe.h"
#include "wired/upstream.h"
#include "wired/wired.h"

constexpr int NETIFD_TIMEOUT_MS = 500;

int32_t gWired_taken_down = -1;
/// The port that is still down for the other one. In a file as well: netifd keeps it down also when
/// this daemon has ended meanwhile.
constexpr char YIELDED_FILE[] = "/var/run/tarn_net.yielded";
static struct {
    bool known;       ///< what an earlier life left behind has been read
    int32_t port;     ///< -1: none
    int32_t failures; ///< cycles in a row without a success over the wire that it yielded to
} gYielded;

static void note_yielded(int32_t port)
{
    gYielded = {.known = true, .port = port, .failures = 0};
    if (port < 0)
        (void)unlink(YIELDED_FILE);
    else if (_file_write_string_fmt(YIELDED_FILE, false, "%d\n", port) != 0)
        log_warning("Failed to write %s: %s", YIELDED_FILE, strerror(errno));
}

static int32_t yielded_port()
{
    if (gYielded.known)
        return gYielded.port;
    int port;
    const bool left = file_read_int(YIELDED_FILE, &port) == 0 && (port == 0 || port == 1);
    gYielded = {.known = true, .port = left ? port : -1, .failures = 0};
    return gYielded.port;
}

enum { EVENT_INTERFACE, EVENT_ACTION };
const blobmsg_policy gWired_event_policy[2] = {
    {"interface", BLOBMSG_TYPE_STRING},
    {"action", BLOBMSG_TYPE_STRING},
};
const blobmsg_policy gDebug_event_policy[1] = {{"enable", BLOBMSG_TYPE_INT32}};

/// Whether netifd has done it; `*present`, whether it is on the bus at all.
static bool ask_netifd(ubus_context *ctx, const char *name, bool up, bool *present)
{
    log_debug("sending event to uds %s:%s", name, up ? "up" : "down");
    uint32_t id = 0;
    *present = ctx && ubus_lookup_id(ctx, "network.interface", &id) == UBUS_STATUS_OK;
    if (!*present) {
        log_error("failed to look up network.interface");
        return false;
    }
    blob_buffer msg;
    blob_buf_init(&msg, 0);
    blobmsg_add_string(&msg, "interface", name);
    int status = ubus_invoke(ctx, id, "down", msg.head, nullptr, nullptr, NETIFD_TIMEOUT_MS);
    if (up)
        status = ubus_invoke(ctx, id, "up", msg.head, nullptr, nullptr, NETIFD_TIMEOUT_MS);
    if (status != UBUS_STATUS_OK)
        log_warning("failed to bring %s %s", name, up ? "up" : "down");
    return status == UBUS_STATUS_OK;
}

int netifd_event(ubus_context *ctx, const char *name, bool up)
{
    bool present;
    (void)ask_netifd(ctx, name, up, &present);
    return present ? 0 : -1;
}

static void send_linkbeat(const char *name)
{
    blob_buffer event;
    blob_buf_init(&event, 0);
    blobmsg_add_string(&event, "interface", name);
    blobmsg_add_u8(&event, "found", 1);
    (void)_zu_send_event("network.linkbeat", event.head);
}

static void switch_port(ubus_context *ctx, const char *name, int other)
{
    char other_name[8];
    snprintf(other_name, sizeof other_name, "wired%d", other);
    note_yielded(other); // first: the daemon may end here
    (void)netifd_event(ctx, other_name, false);
    uplink_set(name);
    gWired_taken_down = other;
    send_linkbeat(name);
}

void wired_event_weigh_cycle(bool passed_over_wire)
{
    const int32_t port = yielded_port();
    if (port < 0)
        return;
    gYielded.failures = passed_over_wire ? 0 : gYielded.failures + 1;
    if (gYielded.failures < inet_test_settings().failure_tolerance)
        return;
    const std::string name = "wired" + std::to_string(port);
    log_notice("The wire is not available, bringing %s up again", name.c_str());
    bool present;
    gYielded.failures = 0; // what cannot be asked or refuses now is asked again after as many
    if (ask_netifd(gUbus_ctx, name.c_str(), true, &present))
        note_yielded(-1);
}

int wired_event(ubus_context *ctx, ubus_object *, ubus_request_data *, const char *, blob_attr *msg)
{
    blob_attr *tb[2];
    if (!zu_blobmsg_parse(gWired_event_policy, tb, msg) || !tb[EVENT_INTERFACE] ||
        !tb[EVENT_ACTION])
        return UBUS_STATUS_INVALID_ARGUMENT;
    const char *name = blobmsg_get_string(tb[EVENT_INTERFACE]);
    const char *action = blobmsg_get_string(tb[EVENT_ACTION]);
    if (strlen(name) != 6 || strncmp(name, "wired", 5) != 0)
        return UBUS_STATUS_OK;
    log_debug("wired event %s:%s", name, action);
    // There are two ports; a name like "wired7" belongs to neither.
    if (strcmp(action, "ifup") == 0 && (name[5] == '0' || name[5] == '1'))
        switch_port(ctx, name, name[5] == '0' ? 1 : 0);
    return UBUS_STATUS_OK;
}

int debug_event(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *msg)
{
    if (zu_blobmsg_member(msg, gDebug_event_policy[0]))
        return UBUS_STATUS_OK;
    log_error("Failed to find 'enable' key in msg");
    return UBUS_STATUS_INVALID_ARGUMENT;
}
