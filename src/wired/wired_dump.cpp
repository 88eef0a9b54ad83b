// The wired package's state document: settings, upstream, followed interfaces, internet test.
#include <string>

#include "platform/zu/clock.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "state/state.h"
#include "wired/inet_probe.h"
#include "wired/netifd/iface.h"
#include "wired/upstream.h"
#include "wired/wired.h"

static void add_option(blob_buf *buf, const char *key, const char *option)
{
    std::string value;
    if (ng_uci_get_string(value, "%s", option) == 0)
        blobmsg_add_string(buf, key, value.c_str());
}

static void add_flag(blob_buf *buf, const char *key, const char *option)
{
    int value = 0;
    (void)ng_uci_get_int(&value, "%s", option);
    blobmsg_add_u8(buf, key, value != 0);
}

static void add_inet_test_settings(blob_buf *buf)
{
    void *table = blobmsg_open_table(buf, "inet_test");
    void *targets = blobmsg_open_array(buf, "targets");
    if (inet_test_settings().targets) {
        tarn_host *target;
        list_for_each_entry(target, inet_test_settings().targets, list)
            blobmsg_add_string(buf, nullptr, target->url);
    }
    blobmsg_close_array(buf, targets);
    blobmsg_add_u32(buf, "failure_tolerance",
                    static_cast<uint32_t>(inet_test_settings().failure_tolerance));
    blobmsg_add_u32(buf, "test_interval",
                    static_cast<uint32_t>(inet_test_settings().test_interval));
    blobmsg_close_table(buf, table);
}

static void add_settings(blob_buf *buf)
{
    void *table = blobmsg_open_table(buf, "settings");
    add_inet_test_settings(buf);
    add_option(buf, "lan_bridge", "tarn_net.wired.lan_bridge");
    void *client = blobmsg_open_table(buf, "wired_client");
    add_flag(buf, "disable", "tarn_net.wired.disable_wired_client");
    int ssid = 0;
    (void)ng_uci_get_int(&ssid, "tarn_net.wired.wired_client_ssid");
    blobmsg_add_u32(buf, "ssid", static_cast<uint32_t>(ssid));
    blobmsg_close_table(buf, client);
    add_flag(buf, "igmp_proxy", "igmpproxy.igmpproxy.enable");
    blobmsg_close_table(buf, table);
}

static void add_interface(blob_buf *buf, const iface_entry *entry)
{
    void *table = blobmsg_open_table(buf, nullptr);
    blobmsg_add_string(buf, "path", entry->obj_path);
    blobmsg_add_string(buf, "device", entry->device);
    blobmsg_add_u8(buf, "up", entry->up);
    blobmsg_add_u8(buf, "default_route", entry->has_default_route);
    blobmsg_add_string(buf, "gateway", entry->gateway);
    blobmsg_add_string(buf, "address", entry->address);
    blobmsg_add_u8(buf, "answered", entry->answered);
    blobmsg_close_table(buf, table);
}

static void add_interfaces(blob_buf *buf, const char *key, const list_head *list)
{
    void *array = blobmsg_open_array(buf, key);
    iface_entry *entry;
    list_for_each_entry(entry, list, link) add_interface(buf, entry);
    blobmsg_close_array(buf, array);
}

static void add_cycle(blob_buf *buf)
{
    const inet_test_state &test = node_state().inet_test;
    void *table = blobmsg_open_table(buf, "cycle");
    blobmsg_add_u32(buf, "interfaces", static_cast<uint32_t>(test.interfaces_to_test));
    blobmsg_add_u32(buf, "tests_to_run", test.tests_to_run);
    blobmsg_add_u32(buf, "tests_reported", static_cast<uint32_t>(test.test_run_count));
    blobmsg_close_table(buf, table);
}

static void add_last_verdict(blob_buf *buf)
{
    const inet_test_verdict &last = node_state().inet_test.last_verdict;
    if (last.at_s == 0)
        return;
    void *table = blobmsg_open_table(buf, "last_verdict");
    blobmsg_add_u64(buf, "time", static_cast<uint64_t>(zu_date_of(last.at_s)));
    blobmsg_add_u8(buf, "passed", last.passed);
    blobmsg_add_string(buf, "result", upstream_state_name(last.result));
    blobmsg_close_table(buf, table);
}

/// The timers that run, with the seconds that are left.
static void add_timers(blob_buf *buf)
{
    const tarn_net_state &state = node_state();
    const struct {
        const char *name;
        const uloop_timeout *timer;
    } timers[] = {
        {"internet_test", &state.inet_test.timer},
        {"wired_enumeration", &state.bridges.enumerate_timer},
        {"mesh_enumeration", &state.mesh.enumerate_timer},
        {"mesh_ready", &state.upstream.mesh_ready_timer},
        {"mesh_up", &state.upstream.mesh_up_timer},
        {"make_up", &state.upstream.make_up_timer},
        {"lonely", &state.mesh.lonely_timer},
    };
    void *table = blobmsg_open_table(buf, "timers");
    for (const auto &row : timers) {
        const int64_t left_ms = uloop_timeout_remaining64(const_cast<uloop_timeout *>(row.timer));
        if (row.timer->pending)
            blobmsg_add_u32(buf, row.name,
                            static_cast<uint32_t>(left_ms > 0 ? (left_ms + 999) / 1000 : 0));
    }
    blobmsg_close_table(buf, table);
}

static void add_tests(blob_buf *buf)
{
    void *array = blobmsg_open_array(buf, "tests");
    inet_test_dump_outcomes(buf);
    blobmsg_close_array(buf, array);
}

static void add_state(blob_buf *buf)
{
    const inet_test_state &test = node_state().inet_test;
    void *table = blobmsg_open_table(buf, "state");
    blobmsg_add_string(buf, "upstream_state", upstream_state_name(test.upstream_state));
    blobmsg_add_string(buf, "uplink_iface", test.uplink_iface);
    blobmsg_add_string(buf, "wired_uplink_bridge", node_state().upstream.wired_uplink_bridge);
    blobmsg_add_u32(buf, "test_failures", static_cast<uint32_t>(test.test_failures));
    add_interfaces(buf, "wired", &node_state().bridges.list);
    add_interfaces(buf, "mesh", &node_state().mesh.list);
    add_cycle(buf);
    add_last_verdict(buf);
    add_tests(buf);
    add_timers(buf);
    blobmsg_close_table(buf, table);
}

int wired_dump_state(ubus_context *, blob_attr *, blob_buf *reply)
{
    if (!reply) {
        log_error("%s is NULL", "reply");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    add_settings(reply);
    add_state(reply);
    return UBUS_STATUS_OK;
}
