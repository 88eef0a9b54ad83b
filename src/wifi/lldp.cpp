// Power negotiation over LLDP: until it is done, access points and mesh interfaces stay off and
// only their intent (config_enable) is kept. Any doubt about the negotiation means "done".

#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/dfs.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wired/upstream.h"

#include <charconv>
#include <cstring>
#include <string>

namespace {

constexpr const char *LLDP_STATE = "wireless._lldp.negotiation_complete";

ubus_subscriber subscriber;
bool subscriber_registered;
uint32_t subscribed_id; // 0: to no object

bool powered_without_lldp()
{
    for (const char *path :
         {"/sys/class/gpio/dc_detect/value", "/sys/class/gpio/poe_at_detect/value"}) {
        int value = 0;
        if (file_read_int(path, &value) == 0 && value != 0)
            return true;
    }
    return false;
}

bool read_decimal(const std::string &text, int *value)
{
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, *value);
    return error == std::errc() && stop == end;
}

const char *state_doubt(ng_uci_state_result result)
{
    switch (result) {
    case NG_UCI_STATE_FOUND:
        return nullptr;
    case NG_UCI_STATE_NO_CONTEXT:
        return "Unable to allocate a UCI context";
    case NG_UCI_STATE_LOOKUP_FAILED:
        return "Unable to find LLDP negotiation UCI state";
    case NG_UCI_STATE_INCOMPLETE:
        return "UCI lookup incomplete for LLDP negotiation state";
    }
    return nullptr;
}

void restore_access_points(int radio)
{
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        int enable = 0;
        if (ng_uci_get_int(&enable, "wireless.ap%d_%d.config_enable", radio, ssid) != 0) {
            log_warning("Unable to read 'config_enable' UCI option for iface ap%i_%i", radio, ssid);
            continue;
        }
        ng_uci_save_action_int_ctx(ng_uci_change_context(), uci_set_string, enable,
                                   "wireless.ap%d_%d.enable", radio, ssid);
    }
}

// What the mesh interface's enable becomes: nothing on a DFS channel, else what is intended.
int mesh_enable_on_channel(int radio, int intended)
{
    int channel = 0;
    if (ng_uci_get_int(&channel, "wireless.radio%d.channel", radio) != 0) {
        log_warning("Unable to read 'channel' UCI option for radio%i", radio);
        return intended;
    }
    std::string htmode;
    if (ng_uci_get_string(htmode, "wireless.radio%d.htmode", radio) != 0) {
        log_warning("Unable to read 'htmode' UCI option for radio%i", radio);
        return intended;
    }
    const bool is_dfs = wifid_channel_is_dfs(channel, htmode.c_str());
    const int enable = is_dfs ? 0 : intended;
    log_debug("Set uci_addr_mesh_enable to %d, mesh_iface_enable: %d channel_is_dfs: %d", enable,
              intended, is_dfs);
    return enable;
}

void restore_mesh(int radio)
{
    int intended = 0;
    if (ng_uci_get_int(&intended, "wireless.mesh%d.config_enable", radio) != 0) {
        log_warning("Unable to read 'config_enable' UCI option for iface mesh%i", radio);
        return;
    }
    ng_uci_save_action_int_ctx(ng_uci_change_context(), uci_set_string,
                               mesh_enable_on_channel(radio, intended), "wireless.mesh%d.enable",
                               radio);
}

int qnet_lldp_negotiation_complete_handler(ubus_context *, ubus_object *, ubus_request_data *,
                                           const char *method, blob_attr *)
{
    if (!method)
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (strcmp(method, "lldp_negotiation_complete") == 0) {
        log_notice("LLDP negotiation complete, restoring interface configuration");
        wifi_restore_config_enabled_interfaces(true);
    }
    return 0;
}

} // namespace

bool wifi_lldp_negotiation_complete()
{
    if (powered_without_lldp()) {
        log_info("Sufficient power without LLDP, negotiation complete");
        return true;
    }
    std::string text;
    const char *doubt = state_doubt(ng_uci_get_state("/var/state", LLDP_STATE, text));
    int value = 0;
    if (!doubt && !read_decimal(text, &value))
        doubt = "LLDP negotiation state is not an integer";
    if (doubt) {
        log_notice("%s", doubt);
        return true;
    }
    log_info("LLDP negotiation done: %d", value);
    return value != 0;
}

void wifi_restore_config_enabled_interfaces(bool reload)
{
    if (!wifi_lldp_negotiation_complete()) {
        log_notice("LLDP negotiation is in progress, skipping wifi interface config restoration");
        return;
    }
    const int radios = wifi_radio_count();
    for (int radio = 0; radio < radios; radio++) {
        restore_access_points(radio);
        restore_mesh(radio);
        // The scanning radio has no such interface.
        if (!wifi_radio_override_active() && ng_uci_exists("wireless.orph_conn%d", radio))
            ng_uci_save_action_int_ctx(ng_uci_change_context(), uci_set_string, 0,
                                       "wireless.orph_conn%d.enable", radio);
    }
    (void)ng_uci_commit("wireless"); // logged there; the next restoration writes the same again
    if (reload)
        (void)run_reload_config();
}

void qnet_lldp_register_subscriber(ubus_context *ctx, uint32_t id)
{
    if (!ctx) {
        log_error("%s is NULL", "ctx");
        return;
    }
    if (!subscriber_registered) {
        subscriber.cb = qnet_lldp_negotiation_complete_handler;
        if (ubus_register_subscriber(ctx, &subscriber) != 0) {
            log_error("Unable to register a subscriber for LLDP negotiation notifications");
            return;
        }
        subscriber_registered = true;
        log_info("Registered subscriber");
    }
    if (id == subscribed_id)
        return;
    if (ubus_subscribe(ctx, &subscriber, id) != 0) {
        log_error("Unable to subscribe to LLDP negotiation notifications");
        return;
    }
    subscribed_id = id;
    log_info("Registered for LLDP negotiation notifications obj_id = %d", static_cast<int>(id));
}

void qnet_lldp_unregister_subscriber(ubus_context *ctx, uint32_t)
{
    if (subscribed_id != 0)
        (void)ubus_unsubscribe(ctx, &subscriber, subscribed_id); // the object is gone already
    subscribed_id = 0;
    log_info("Unregistered LLDP subscriber");
}

void wifi_lldp_bus_reset(ubus_context *ctx)
{
    // One that cannot be unregistered is still in the library's hands and stays as it is.
    if (subscriber_registered && ubus_unregister_subscriber(ctx, &subscriber) == 0)
        subscriber_registered = false;
    subscribed_id = 0;
}
