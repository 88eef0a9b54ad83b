// Rebuilds the live record from the configuration. A package that cannot be read is not a missing
// one: what is in force stays, and the configuration is read again until it can be.
#include <memory>
#include <new>
#include <optional>

#include "platform/zu/log.h"
#include "wifi/health.h"
#include "wifi/radio/radio.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/kept.h"

constexpr int AGAIN_MS = 1000;

static bool is_read;
static uloop_timeout again;

static int read_record()
{
    const std::unique_ptr<wifi_settings> fresh(new (std::nothrow) wifi_settings{});
    if (!fresh) {
        log_error("Failed to allocate memory for the wireless settings");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    if (!wifi_settings_can_be_read())
        return UBUS_STATUS_UNKNOWN_ERROR;
    wifi_read_settings(fresh.get(), true);
    gWifi_live_settings = *fresh;
    wifi_radios_now_in_force();
    wifi_radio_list_ifaces();
    return UBUS_STATUS_OK;
}

static int read_or_try_again()
{
    const int status = read_record();
    if (status != UBUS_STATUS_OK) {
        uloop_timeout_set(&again, AGAIN_MS);
        return status;
    }
    uloop_timeout_cancel(&again);
    is_read = true;
    return status;
}

static void read_again_cb(uloop_timeout *)
{
    std::optional<zu_log_repetition> quiet(std::in_place); // why not was said the first time
    if (read_or_try_again() != UBUS_STATUS_OK)
        return;
    quiet.reset();
    log_notice("The wireless settings have been read now");
}

int wifi_reload_config(bool first_start)
{
    again.cb = read_again_cb;
    if (first_start) {
        wifi_delayed_start();
        wifi_radio_start();
        wifi_check_enables();
        wifi_health_start();
        is_read = false;
    }
    return read_or_try_again();
}

bool wifi_settings_are_read()
{
    return is_read;
}

int wifi_reload_config_cb(ubus_context *, blob_attr *, blob_buf *)
{
    return wifi_reload_config(false);
}
