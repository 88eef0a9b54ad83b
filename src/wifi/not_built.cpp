// What of the wireless package this build does not have. Methods say so to their caller
// (UBUS_STATUS_NOT_SUPPORTED); what is only told to the package is dropped. A function leaves this
// file when its subsystem comes.
#include "wifi/wifi.h"

// Check-in and health

int gen_checkin_wifi_section(ubus_context *, blob_attr *, blob_buf *)
{
    return UBUS_STATUS_NOT_SUPPORTED;
}

int wifi_health_check(ubus_context *, blob_attr *, blob_buf *)
{
    return UBUS_STATUS_NOT_SUPPORTED;
}
