// What the radios are asked and what they tell: scans and channel surveys through u80211d (bus
// object "wifi"), radar and channel switches from the kernel.
#pragma once

#include <array>
#include <libubus.h>
#include <optional>
#include <vector>

#include "platform/fw_core/jobs.h"
#include "wifi/settings/record.h"

/// Begins with nothing known of u80211d, no interface listed and the kernel's events listened to.
/// Once, when the wireless state is initialised.
void wifi_radio_start();
/// Of each radio the number (1..4) of the first SSID that is meant to be on the air there, or 0.
using wifi_first_ssids = std::array<int, WIFI_RADIOS_MAX>;
/// As it is configured now.
wifi_first_ssids wifi_radio_first_ssids();
/// Lists the interfaces to scan and to survey. What was in flight on the scanning interfaces is
/// aborted and asked for anew; surveys keep their counters.
void wifi_radio_list_ifaces(const wifi_first_ssids &first_ssids);
/// As above, as they are configured now; when that cannot be read, as soon as it can be.
void wifi_radio_list_ifaces();

// u80211d on the bus

/// An object that is on the bus: followed when it is u80211d's.
void u80211d_object_added(ubus_context *ctx, const ubus_object_data *object);
/// Subscribes to the notifications of the object; once per id. Refused, it is tried again until the
/// object is gone.
void u80211d_register_subscriber(ubus_context *ctx, uint32_t id);
void u80211d_unsubscribe(ubus_context *ctx, uint32_t id);
/// Forgets the subscription that was lost with the bus connection; `ctx` is the new one.
void u80211d_bus_reset(ubus_context *ctx);

// Methods of "qnet.wifi", and the jobs

int ubus_wifi_ap_scan_now(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                          const char *method, blob_attr *msg);
int ubus_wifi_ap_survey_now(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                            const char *method, blob_attr *msg);
/// The jobs the wireless package offers ("ap_scan"), ended by a row without a name.
const package_job_event *wifi_jobs();

// The state dump; what cannot be added is logged and left out

/// Adds the table "wifi_scanning_state".
void wifi_dump_scanning_state(blob_buf *buf);
/// Adds the table "wifi_survey_state".
void wifi_dump_survey_state(blob_buf *buf);

// What the check-in and the health check ask (report.cpp)

struct wifi_scan_iface {
    const char *name;
    bool running;       ///< something is in flight
    bool complete;      ///< the results are those of the last scan
    blob_attr *results; ///< unnamed tables, as the check-in shows them; null before the first scan
};

/// How scanning stands now; good until the loop is entered again.
struct wifi_scan_status {
    bool job_running;
    bool checkin_after_scan;
    std::vector<wifi_scan_iface> ifaces;
};
wifi_scan_status wifi_scan_status_now();

/// Shares of the time between the last two surveys, 0 to 1.
struct wifi_channel_use {
    double busy, rx, tx;
};
/// Of the channel that the radio is on; nothing while one of the two samples is missing.
std::optional<wifi_channel_use> wifi_survey_channel_use(int radio);

/// True while u80211d is needed and not on the bus.
bool wifi_u80211d_is_missing();
