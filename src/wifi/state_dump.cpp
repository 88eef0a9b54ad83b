// The state half of the wireless dump, and the package's dump_state callback.

#include "platform/fw_core/fw_core.h"
#include "platform/zu/log.h"
#include "state/state.h"
#include "wifi/radio/dfs.h"
#include "wifi/radio/radio.h"
#include "wifi/settings/dump.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

struct gateway_row {
    const char *key;
    char *mesh_gateway_facts::*fact;
};

constexpr gateway_row GATEWAY_ROWS[] = {
    {"gateway", &mesh_gateway_facts::mac},
    {"gateway_quality", &mesh_gateway_facts::quality},
    {"gateway_route", &mesh_gateway_facts::route},
    {"gateway_latency", &mesh_gateway_facts::latency},
    {"gateway_speed", &mesh_gateway_facts::speed},
};

static void report(int result, const char *what)
{
    if (result != 0)
        log_info("Unable to add %s", what);
}

static void dump_gateway(blob_buf *buf)
{
    for (const gateway_row &row : GATEWAY_ROWS)
        if (const char *text = node_state().mesh.gateway.*row.fact)
            report(blobmsg_add_string(buf, row.key, text), row.key);
}

static void dump_dfs_usable(blob_buf *buf)
{
    void *array = blobmsg_open_array(buf, "dfs_usable");
    if (!array) {
        log_warning("Unable to open 'dfs_usable' for the state dump");
        return;
    }
    for (const wifi_dfs_channel &entry : wifi_dfs_channel_table()) {
        if (entry.channel == 0)
            break;
        if (wifi_dfs_is_usable(entry))
            report(blobmsg_add_u32(buf, "channel", static_cast<uint32_t>(entry.channel)),
                   "a usable DFS channel");
    }
    blobmsg_close_array(buf, array);
}

static void wifi_dump_wireless_state(blob_buf *buf)
{
    report(blobmsg_add_u32(buf, "lonely_trigger_count",
                           static_cast<uint32_t>(node_state().mesh.lonely_trigger_count)),
           "lonely_trigger_count");
    report(blobmsg_add_string(buf, "upstream_state",
                              upstream_state_name(node_state().inet_test.upstream_state)),
           "upstream_state");
    dump_gateway(buf);
    report(blobmsg_add_u8(buf, "dfs_event_detected", dfs_event_detected), "dfs_event_detected");
    dump_dfs_usable(buf);
}

static void dump_delayed(blob_buf *buf)
{
    const wifi_delayed_status now = wifi_delayed_now();
    report(blobmsg_add_string(buf, "state", now.state), "the delayed state");
    report(blobmsg_add_u32(buf, "seconds_left", static_cast<uint32_t>(now.seconds_left)),
           "seconds_left");
}

/// One table of the document.
template <typename Fill>
static void dump_table(blob_buf *buf, const char *name, Fill fill)
{
    void *table = blobmsg_open_table(buf, name);
    if (!table) {
        log_warning("Unable to open '%s' for the state dump", name);
        return;
    }
    fill();
    blobmsg_close_table(buf, table);
}

int wifi_dump_settings_and_state(blob_buf *buf, bool include_secrets)
{
    if (!buf) {
        log_error("%s is NULL", "buf");
        return -1;
    }
    dump_table(buf, "settings",
               [=] { (void)wifi_dump_settings(buf, wifi_live_settings(), include_secrets); });
    dump_table(buf, "state", [=] { wifi_dump_wireless_state(buf); });
    dump_table(buf, "delayed", [=] { dump_delayed(buf); });
    wifi_dump_scanning_state(buf);
    wifi_dump_survey_state(buf);
    return 0;
}

int wifi_dump_state(ubus_context *, blob_attr *msg, blob_buf *reply)
{
    return wifi_dump_settings_and_state(reply, package_include_secrets(msg)) == 0
               ? UBUS_STATUS_OK
               : UBUS_STATUS_UNKNOWN_ERROR;
}
