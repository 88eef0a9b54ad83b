// The hostapd instances on the bus, one per enabled access point ("hostapd.apR_S"), and what each
// is told when it appears: its 802.11k neighbour list and its fast-transition bridge.

#include "core/state.h"
#include "platform/zu/blobmsg_util.h"
#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "platform/zu/ubus_call.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr int CALL_LIMIT_MS = 5000;

struct hapd_instance {
    std::string path;
    int radio;
    int ssid; // 1..4
    bool no_ft_bridge_reported;
};

std::vector<hapd_instance> instances;
uloop_timeout neighbor_timer;
uloop_timeout ft_bridge_timer;

hapd_instance *find_instance(const char *path)
{
    for (hapd_instance &instance : instances)
        if (instance.path == path)
            return &instance;
    return nullptr;
}

std::string own_bssid(const hapd_instance &instance)
{
    char path[64];
    snprintf(path, sizeof(path), "/sys/class/net/ap%d_%d/address", instance.radio, instance.ssid);
    std::string address;
    (void)file_read_string(path, address, 32); // no such interface: nothing to leave out
    return address;
}

void neighbor_call_done(int status, void *)
{
    if (status != 0)
        log_notice("A hostapd instance did not take its neighbor list: %s", ubus_strerror(status));
}

// `priv` is the bus path: the instance may have gone meanwhile.
void ft_bridge_call_done(int status, void *priv)
{
    const std::unique_ptr<char, free_deleter> path(static_cast<char *>(priv));
    hapd_instance *instance = find_instance(path.get());
    if (status == 0 || !instance || instance->no_ft_bridge_reported)
        return;
    instance->no_ft_bridge_reported = true;
    log_notice("'%s' did not take its ft_auth_bridge: %s", path.get(), ubus_strerror(status));
}

// Calls an instance; `priv` is freed here when the call cannot be made.
void call_instance(const hapd_instance &instance, const char *method, blob_buf *message,
                   zu_ubus_call_done done, char *priv)
{
    uint32_t id = 0;
    int status = gUbus_ctx ? ubus_lookup_id(gUbus_ctx, instance.path.c_str(), &id)
                           : UBUS_STATUS_CONNECTION_FAILED;
    if (status == 0)
        status =
            zu_ubus_call_async(gUbus_ctx, id, method, message->head, CALL_LIMIT_MS, done, priv);
    if (status == 0)
        return;
    log_notice("Unable to call '%s' of '%s': %s", method, instance.path.c_str(),
               ubus_strerror(status));
    free(priv);
}

void send_neighbor_list(const hapd_instance &instance)
{
    if (!wifi_live_settings()->ssids[instance.ssid - 1].neigh_report)
        return;
    blob_buffer message;
    blob_buf_init(&message, 0);
    void *list = blobmsg_open_array(&message, "list");
    wifi_neighbors_add_to(&message, instance.ssid, own_bssid(instance).c_str());
    blobmsg_close_array(&message, list);
    call_instance(instance, "rrm_nr_set", &message, neighbor_call_done, nullptr);
}

void send_ft_auth_bridge(const hapd_instance &instance)
{
    char bridge[16];
    if (determine_dest_ssid_bridge(instance.ssid, bridge) != 0)
        return;
    blob_buffer message;
    blob_buf_init(&message, 0);
    blobmsg_add_string(&message, "bridge", bridge);
    call_instance(instance, "update_ft_auth_bridge", &message, ft_bridge_call_done,
                  strdup(instance.path.c_str()));
}

void neighbor_timer_cb(uloop_timeout *)
{
    for (const hapd_instance &instance : instances)
        send_neighbor_list(instance);
}

void ft_bridge_timer_cb(uloop_timeout *)
{
    for (const hapd_instance &instance : instances)
        send_ft_auth_bridge(instance);
}

} // namespace

void wifi_add_hapd_instance_to_list(const char *path, int)
{
    hapd_instance instance{path, -1, 0, false};
    int length = -1;
    sscanf(path, "hostapd.ap%1d_%1d%n", &instance.radio, &instance.ssid, &length);
    if (length != static_cast<int>(strlen(path)) || instance.radio < 0 ||
        instance.radio >= WIFI_RADIOS_MAX || instance.ssid < 1 || instance.ssid > WIFI_SSIDS) {
        log_debug("'%s' is no access point of this node", path);
        return;
    }
    if (!find_instance(path))
        instances.push_back(std::move(instance));
}

void wifi_remove_hapd_instance_from_list(const char *path)
{
    std::erase_if(instances,
                  [path](const hapd_instance &instance) { return instance.path == path; });
}

void wifi_arm_neighbor_list_timer(int delay_ms)
{
    neighbor_timer.cb = neighbor_timer_cb;
    uloop_timeout_set(&neighbor_timer, delay_ms);
}

void wifi_arm_ft_auth_bridge_timer(int delay_ms)
{
    ft_bridge_timer.cb = ft_bridge_timer_cb;
    uloop_timeout_set(&ft_bridge_timer, delay_ms);
}

void wifi_hapd_bus_reset()
{
    instances.clear();
    uloop_timeout_cancel(&neighbor_timer);
    uloop_timeout_cancel(&ft_bridge_timer);
}
