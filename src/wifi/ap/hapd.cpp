// The hostapd instances on the bus, one per enabled access point ("hostapd.apR_S"), and what each
// is sent: its 802.11k neighbour list and its fast-transition bridge. An instance is sent again
// when that has changed, when it appears anew, and, after an answer that did not come or was no,
// half a minute later.

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "platform/zu/ubus_call.h"
#include "state/state.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

constexpr int CALL_LIMIT_MS = 5000;
constexpr int TELL_AGAIN_MS = 30000;
constexpr int BRIDGES_SETTLE_MS = 1000;

/// What instances are sent.
enum subject { NEIGHBORS, FT_BRIDGE, SUBJECTS };

struct hapd_instance {
    std::string path;
    int radio;
    int ssid;                   // 1..4
    std::string sent[SUBJECTS]; // the message that was sent last; empty: none, or not taken
    bool refusal_reported[SUBJECTS];
};

static std::vector<hapd_instance> gInstances;

/// A message on its way; the instance may go meanwhile.
struct call_note {
    std::string path;
    subject about;
};

static void neighbor_timer_cb(uloop_timeout *);
static void ft_bridge_timer_cb(uloop_timeout *);

struct subject_row {
    const char *method;
    const char *noun;
    uloop_timeout timer;
} subjects[SUBJECTS] = {
    {"rrm_nr_set",
     "neighbor list",
     {.list = {}, .pending = false, .cb = neighbor_timer_cb, .time = {}}},
    {"update_ft_auth_bridge",
     "ft_auth_bridge",
     {.list = {}, .pending = false, .cb = ft_bridge_timer_cb, .time = {}}},
};

static hapd_instance *find_instance(const char *path)
{
    for (hapd_instance &instance : gInstances)
        if (instance.path == path)
            return &instance;
    return nullptr;
}

static std::string own_bssid(const hapd_instance &instance)
{
    char path[64];
    snprintf(path, sizeof(path), "/sys/class/net/ap%d_%d/address", instance.radio, instance.ssid);
    std::string address;
    (void)file_read_string(path, address, 32); // no such interface: nothing to leave out
    return address;
}

static void tell_again(subject about)
{
    uloop_timeout *timer = &subjects[about].timer;
    if (!timer->pending)
        uloop_timeout_set(timer, TELL_AGAIN_MS);
}

static void not_taken(hapd_instance *instance, subject about, int status)
{
    if (!instance->refusal_reported[about])
        log_notice("'%s' did not take its %s: %s", instance->path.c_str(), subjects[about].noun,
                   ubus_strerror(status));
    instance->refusal_reported[about] = true;
    if (status == UBUS_STATUS_METHOD_NOT_FOUND)
        return; // it never will
    instance->sent[about].clear();
    tell_again(about);
}

static void call_done(int status, void *priv)
{
    const std::unique_ptr<call_note> note(static_cast<call_note *>(priv));
    hapd_instance *instance = find_instance(note->path.c_str());
    if (!instance)
        return;
    if (status != UBUS_STATUS_OK)
        not_taken(instance, note->about, status);
    else
        instance->refusal_reported[note->about] = false;
}

static int call(const hapd_instance &instance, subject about, blob_buf *message)
{
    uint32_t id = 0;
    const int status = gUbus_ctx ? ubus_lookup_id(gUbus_ctx, instance.path.c_str(), &id)
                                 : UBUS_STATUS_CONNECTION_FAILED;
    if (status != UBUS_STATUS_OK)
        return status;
    auto note = std::make_unique<call_note>(call_note{instance.path, about});
    const int sent = zu_ubus_call_async(gUbus_ctx, id, subjects[about].method, message->head,
                                        CALL_LIMIT_MS, call_done, note.get());
    if (sent == UBUS_STATUS_OK)
        (void)note.release();
    return sent;
}

/// Sends the message unless it is what the instance was sent last.
static void tell(hapd_instance *instance, subject about, blob_buf *message)
{
    std::string bytes(static_cast<const char *>(blob_data(message->head)), blob_len(message->head));
    if (bytes == instance->sent[about])
        return;
    instance->sent[about] = std::move(bytes);
    if (const int status = call(*instance, about, message); status != UBUS_STATUS_OK)
        not_taken(instance, about, status);
}

static void tell_neighbors(hapd_instance *instance)
{
    // Without a list since the start, hostapd keeps the one that it may have.
    if (!wifi_live_settings()->ssids[instance->ssid - 1].neigh_report ||
        !wifi_neighbors_are_known())
        return;
    blob_buffer message;
    blob_buf_init(&message, 0);
    void *list = blobmsg_open_array(&message, "list");
    wifi_neighbors_add_to(&message, instance->ssid, own_bssid(*instance).c_str());
    blobmsg_close_array(&message, list);
    tell(instance, NEIGHBORS, &message);
}

static void tell_ft_bridge(hapd_instance *instance)
{
    char bridge[16];
    if (determine_dest_ssid_bridge(instance->ssid, bridge) != 0)
        return;
    blob_buffer message;
    blob_buf_init(&message, 0);
    blobmsg_add_string(&message, "bridge", bridge);
    tell(instance, FT_BRIDGE, &message);
}

static void neighbor_timer_cb(uloop_timeout *)
{
    for (hapd_instance &instance : gInstances)
        tell_neighbors(&instance);
}

static void ft_bridge_timer_cb(uloop_timeout *)
{
    for (hapd_instance &instance : gInstances)
        tell_ft_bridge(&instance);
}

void wifi_add_hapd_instance_to_list(const char *path, int)
{
    hapd_instance instance{path, -1, 0, {}, {}};
    int length = -1;
    sscanf(path, "hostapd.ap%1d_%1d%n", &instance.radio, &instance.ssid, &length);
    if (length != static_cast<int>(strlen(path)) || instance.radio < 0 ||
        instance.radio >= WIFI_RADIOS_MAX || instance.ssid < 1 || instance.ssid > WIFI_SSIDS) {
        log_debug("'%s' is no access point of this node", path);
        return;
    }
    // A new one knows nothing of what the old one was sent.
    wifi_remove_hapd_instance_from_list(path);
    gInstances.push_back(std::move(instance));
}

void wifi_remove_hapd_instance_from_list(const char *path)
{
    std::erase_if(gInstances,
                  [path](const hapd_instance &instance) { return instance.path == path; });
}

bool wifi_hapd_is_known(const char *path)
{
    return find_instance(path) != nullptr;
}

void wifi_arm_neighbor_list_timer(int delay_ms)
{
    uloop_timeout_set(&subjects[NEIGHBORS].timer, delay_ms);
}

void wifi_arm_ft_auth_bridge_timer(int delay_ms)
{
    uloop_timeout_set(&subjects[FT_BRIDGE].timer, delay_ms);
}

void wifi_hapd_bridges_applied()
{
    if (!gInstances.empty() && !subjects[FT_BRIDGE].timer.pending)
        wifi_arm_ft_auth_bridge_timer(BRIDGES_SETTLE_MS);
}

void wifi_hapd_bus_reset()
{
    gInstances.clear();
    for (subject_row &row : subjects)
        uloop_timeout_cancel(&row.timer);
}
