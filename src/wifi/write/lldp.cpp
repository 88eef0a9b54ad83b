// Power negotiation over LLDP: until it is done, access points and mesh interfaces stay off and
// only their intent (config_enable) is kept. Any doubt about the negotiation means "done".
// Switching them on is enables.cpp's.

#include <cstring>
#include <string>

#include "platform/zu/file.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/number.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

constexpr const char *LLDP_STATE = "wireless._lldp.negotiation_complete";

static ubus_subscriber gSubscriber;
static bool gSubscriber_registered;
static uint32_t gSubscribed_id; // 0: to no object

static bool powered_without_lldp()
{
    for (const char *path :
         {"/sys/class/gpio/dc_detect/value", "/sys/class/gpio/poe_at_detect/value"}) {
        int value = 0;
        if (file_read_int(path, &value) == 0 && value != 0)
            return true;
    }
    return false;
}

static const char *state_doubt(ng_uci_state_result result)
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

/// The state of the negotiation, or in `doubt` why it is not known, which counts as complete.
static bool negotiation_complete(int *value, const char **doubt)
{
    std::string text;
    *value = 1;
    *doubt = state_doubt(ng_uci_get_state("/var/state", LLDP_STATE, text));
    if (!*doubt && !zu_number_read(text, value))
        *doubt = "LLDP negotiation state is not an integer";
    return *doubt || *value != 0;
}

static int qnet_lldp_negotiation_complete_handler(ubus_context *, ubus_object *,
                                                  ubus_request_data *, const char *method,
                                                  blob_attr *)
{
    if (!method)
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (strcmp(method, "lldp_negotiation_complete") == 0) {
        log_notice("LLDP negotiation complete, restoring interface configuration");
        wifi_restore_config_enabled_interfaces(true);
    }
    return 0;
}

bool wifi_lldp_negotiation_complete()
{
    if (powered_without_lldp()) {
        log_info("Sufficient power without LLDP, negotiation complete");
        return true;
    }
    int value;
    const char *doubt;
    const bool complete = negotiation_complete(&value, &doubt);
    if (doubt)
        log_notice("%s", doubt);
    else
        log_info("LLDP negotiation done: %d", value);
    return complete;
}

bool wifi_lldp_keeps_interfaces_off()
{
    const zu_log_repetition quiet;
    int value;
    const char *doubt;
    return !powered_without_lldp() && !negotiation_complete(&value, &doubt);
}

void qnet_lldp_register_subscriber(ubus_context *ctx, uint32_t id)
{
    if (!ctx) {
        log_error("%s is NULL", "ctx");
        return;
    }
    if (!gSubscriber_registered) {
        gSubscriber.cb = qnet_lldp_negotiation_complete_handler;
        if (ubus_register_subscriber(ctx, &gSubscriber) != 0) {
            log_error("Unable to register a subscriber for LLDP negotiation notifications");
            return;
        }
        gSubscriber_registered = true;
        log_info("Registered subscriber");
    }
    if (id == gSubscribed_id)
        return;
    if (ubus_subscribe(ctx, &gSubscriber, id) != 0) {
        log_error("Unable to subscribe to LLDP negotiation notifications");
        return;
    }
    gSubscribed_id = id;
    log_info("Registered for LLDP negotiation notifications obj_id = %d", static_cast<int>(id));
    wifi_check_enables(); // for what was notified before
}

void qnet_lldp_unregister_subscriber(ubus_context *ctx, uint32_t)
{
    if (gSubscribed_id != 0)
        (void)ubus_unsubscribe(ctx, &gSubscriber, gSubscribed_id); // the object is gone already
    gSubscribed_id = 0;
    log_info("Unregistered LLDP subscriber");
}

void wifi_lldp_bus_reset(ubus_context *ctx)
{
    // One that cannot be unregistered is still in the library's hands and stays as it is.
    if (gSubscriber_registered && ubus_unregister_subscriber(ctx, &gSubscriber) == 0)
        gSubscriber_registered = false;
    gSubscribed_id = 0;
}
