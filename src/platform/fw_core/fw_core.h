// The frame every package of the device shares: generic bus methods, jobs, check-in requests.
//
// A package registers a name and five callbacks; the generic methods find it by the name of the
// bus object that was called.
#pragma once

#include <libubus.h>

#include <cstdint>

/// A package callback: gets the parsed message, adds to `reply`, gives a bus status.
using package_cb = int (*)(ubus_context *ctx, blob_attr *msg, blob_buf *reply);

/// The five callbacks of a package; a null one answers UBUS_STATUS_NOT_SUPPORTED.
struct package_callbacks {
    package_cb parse_config;
    package_cb reload_config;
    package_cb gen_checkin;
    package_cb health_check;
    package_cb dump_state;
};

struct package_handler {
    char name[32]; ///< the package's bus object
    const package_callbacks *callbacks;
};

constexpr int PACKAGE_HANDLERS_MAX = 10;
extern package_handler gPackage_method_handlers[PACKAGE_HANDLERS_MAX];
extern int32_t gPackage_method_handlers_index; ///< entries filled

/// The generic methods' policies; one field each but gen_checkin.
extern const blobmsg_policy ubus_package_parse_config_policy[1];       ///< params TABLE
extern const blobmsg_policy ubus_package_reload_config_policy[1];      ///< package STRING
extern const blobmsg_policy ubus_package_set_debug_level_policy[1];    ///< level INT32, 0..5
extern const blobmsg_policy ubus_package_gen_checkin_policy[2];        ///< checkin_type, verbose
extern const blobmsg_policy ubus_package_dump_state_policy[1];         ///< include_secrets INT8
extern const blobmsg_policy ubus_package_maint_window_event_policy[1]; ///< active INT8

int ubus_parse_config(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                      const char *method, blob_attr *msg);
int ubus_reload_config(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                       const char *method, blob_attr *msg);
int ubus_set_debug_level(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                         const char *method, blob_attr *msg);
int ubus_gen_checkin(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                     const char *method, blob_attr *msg);
int ubus_health_check(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                      const char *method, blob_attr *msg);
int ubus_dump_state(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                    blob_attr *msg);

/// Asks the cloud-communication daemon for a check-in of `type`, `delayed` if set. Asynchronous:
/// the call is sent and its outcome only logged.
void cloud_checkin(ubus_context *ctx, const char *type, bool delayed);

/// Reboots the device in the orderly way, logging `reason`.
void _fw_core_reboot(const char *reason);
