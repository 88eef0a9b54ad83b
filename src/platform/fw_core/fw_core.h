// The frame every package of the device shares: generic bus methods and check-in requests.
//
// A package registers a name and five callbacks; the generic methods find it by the name of the
// bus object that was called. What they check for all packages: the object has a slot
// (UBUS_STATUS_NOT_FOUND) and the slot the callback (UBUS_STATUS_NOT_SUPPORTED); the message is
// well formed and each member of the policy has its type (UBUS_STATUS_INVALID_ARGUMENT, logged);
// the reply fits on the bus (UBUS_STATUS_UNKNOWN_ERROR, logged).
#pragma once

#include <cstddef>
#include <cstdint>
#include <libubus.h>

/// A package callback: gets the whole message of the call and adds to `reply`; gives the bus status
/// of the call. A status other than 0 drops the reply (parse_config's excepted).
using package_cb = int (*)(ubus_context *ctx, blob_attr *msg, blob_buf *reply);

/// The five callbacks of a package; a null one answers UBUS_STATUS_NOT_SUPPORTED.
struct package_callbacks {
    /// Applies the table "params", or changes nothing; whether it must be there is the package's to
    /// say. Every ERROR logged meanwhile goes into the reply, so it must not hold a secret.
    package_cb parse_config;
    /// Reads the package's settings again. `reply` is not sent.
    package_cb reload_config;
    /// Adds the package's members of the check-in document.
    package_cb gen_checkin;
    /// Adds one unnamed table {"id", "object", "since", "advice"} to `reply` for each problem
    /// found: the package is healthy when none was added. A status other than 0 means that the
    /// check could not be made.
    package_cb health_check;
    /// Adds the state document. Secrets belong in it only when package_include_secrets(msg).
    package_cb dump_state;
};

struct package_handler {
    char name[32]; ///< the package's bus object
    const package_callbacks *callbacks;
};

constexpr int PACKAGE_HANDLERS_MAX = 10;
extern package_handler gPackage_method_handlers[PACKAGE_HANDLERS_MAX];
/// Entries filled. The first entry of a name is the one that counts.
extern int32_t gPackage_method_handlers_index;

/// Largest reply in bytes; the bus cuts the connection of a daemon that sends more than 1 MiB.
constexpr std::size_t PACKAGE_REPLY_MAX = 1000000;
/// Most lines of "messages" in the reply to parse_config, and the bytes each is cut to.
constexpr unsigned PACKAGE_MESSAGES_MAX = 100;
constexpr std::size_t PACKAGE_MESSAGE_LENGTH_MAX = 1024;

/// The generic methods' policies; one field each but gen_checkin.
extern const blobmsg_policy ubus_package_parse_config_policy[1];       ///< params TABLE
extern const blobmsg_policy ubus_package_reload_config_policy[1];      ///< package STRING
extern const blobmsg_policy ubus_package_set_debug_level_policy[1];    ///< level INT32, 0..5
extern const blobmsg_policy ubus_package_gen_checkin_policy[2];        ///< checkin_type, verbose
extern const blobmsg_policy ubus_package_dump_state_policy[1];         ///< include_secrets INT8
extern const blobmsg_policy ubus_package_maint_window_event_policy[1]; ///< active INT8

/// Replies {"success": bool, "messages": [..]}, with the ERROR lines logged while the callback ran
/// and what it explained; the status is the callback's. A call without the table "params" gets
/// a line that says so.
int ubus_parse_config(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                      const char *method, blob_attr *msg);
/// Replies with the status alone.
int ubus_reload_config(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                       const char *method, blob_attr *msg);
/// Sets the log's threshold for the whole daemon; replies with the status alone.
int ubus_set_debug_level(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                         const char *method, blob_attr *msg);
/// Replies with the document the callback makes.
int ubus_gen_checkin(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                     const char *method, blob_attr *msg);
/// Replies {"healthy": bool, "problems": [..]}.
int ubus_health_check(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                      const char *method, blob_attr *msg);
/// Replies with the document the callback makes.
int ubus_dump_state(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                    blob_attr *msg);

/// The dump_state call's "include_secrets"; false when it is not there.
bool package_include_secrets(blob_attr *msg);

/// Adds a line to the "messages" of the parse_config call that is being answered, for its caller
/// alone: what is worth knowing and no fault of the node. Nothing outside of such a call.
void package_explain(const char *text);

/// Asks the cloud-communication daemon for a check-in of `type`, `delayed` if set. Without a bus
/// (`ctx` null while it has not been reached yet) that is only logged. Asynchronous:
/// the call is sent and its outcome only logged; it is given up after CLOUD_CHECKIN_TIMEOUT_MS.
/// Each request is its own; past CLOUD_CHECKINS_MAX outstanding ones a further one is dropped
/// (WARNING).
void cloud_checkin(ubus_context *ctx, const char *type, bool delayed);
constexpr int CLOUD_CHECKIN_TIMEOUT_MS = 10000;
constexpr int CLOUD_CHECKINS_MAX = 8;

/// Reboots the device in the orderly way, logging `reason`.
void _fw_core_reboot(const char *reason);
