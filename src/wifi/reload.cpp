// Rebuilds the live record from the configuration.
#include <memory>
#include <new>

#include "platform/zu/log.h"
#include "wifi/kept.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

int wifi_reload_config(bool first_start)
{
    const std::unique_ptr<wifi_settings> fresh(new (std::nothrow) wifi_settings{});
    if (!fresh) {
        log_error("Failed to allocate memory for the wireless settings");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    wifi_read_settings(fresh.get(), true);
    gWifi_live_settings = *fresh;
    wifi_radios_now_in_force();
    if (first_start)
        wifi_delayed_start();
    return UBUS_STATUS_OK;
}

int wifi_reload_config_cb(ubus_context *, blob_attr *, blob_buf *)
{
    return wifi_reload_config(false);
}
