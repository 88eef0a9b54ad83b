// The wired subsystem in this process, on a simulated root: real UCI files, commands, kernel rules
// and bus, fresh for each test. A second connection hears the bus events.
#pragma once

#include <cstdio>
#include <filesystem>
#include <libubox_host/clock.h>
#include <optional>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "state/owned.h"
#include "support/bus_fixture.h"
#include "support/node.h"
#include "support/run.h"
#include "support/temporary_directory.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wired/inet_probe.h"
#include "wired/upstream.h"

constexpr uint32_t NONE = TARN_NET_UPSTREAM_NONE;
constexpr uint32_t WAN = TARN_NET_UPSTREAM_WAN_STATE;
constexpr uint32_t MESH = TARN_NET_UPSTREAM_MESH_STATE;
constexpr uint32_t LONELY = TARN_NET_LONELY_ORPHAN_STATE;
/// Writes down what stood committed when it was run.
constexpr char RELOAD_CONFIG[] = R"sh(#!/bin/sh
rules=$(ip rule show priority 500 | sed 's/^500:[[:space:]]*//; s/ *$//' | paste -sd ';')
dns=$(uci -q get dhcp.lan_dns.interface | tr ' ' '\n' | grep -E '^(lo|br-(wired|mesh_rp).*)$' | paste -sd ' ')
forwards=$(uci -q show firewall | sed -n "s/^firewall\.\(.*wan_wired.\)\.enabled='1'/\1/p" | paste -sd ' ')
echo "reload_config [$rules] dns [$dns] forward [$forwards]" >>/var/log/journal
exit "$(cat /var/sim/exit/reload_config 2>/dev/null || echo 0)"
)sh";

struct node_fixture : bus_fixture, logging {
    std::optional<event_log> events;

    void SetUp() override
    {
        bus_fixture::SetUp();
        begin_anew();
        run("while ip rule del priority 500; do :; done");
        install_commands();
        log.clear();
        debug_set_level(ZU_LOG_DEBUG);
        platform_detect();
        inet_test_reset();
        (void)wifi_reload_config(true);
        gOnline_settings.failure_tolerance = 3;
        events.emplace(stranger, "*");
    }
    void TearDown() override
    {
        uloop_clock_virtual(false);
        inet_test_reset();
        bus_fixture::TearDown();
    }

    static void install_commands()
    {
        run("mkdir -p /tmp/bin");
        write_file("/tmp/bin/reload_config", RELOAD_CONFIG);
        run("chmod +x /tmp/bin/reload_config");
        static bool prepended;
        if (!prepended)
            setenv("PATH", (std::string("/tmp/bin:") + getenv("PATH")).c_str(), 1);
        prepended = true;
    }

    inet_test_state &test() { return gTarn_net_state.inet_test; }
    upstream_record &upstream() { return gTarn_net_state.upstream; }

    void stand_in(uint32_t state, const char *uplink, const char *bridge)
    {
        test().upstream_state = state;
        snprintf(test().uplink_iface, 16, "%s", uplink);
        snprintf(upstream().wired_uplink_bridge, 16, "%s", bridge);
    }
    /// Ends a cycle whose last report spoke for `result`; `passed` is the interface of its success,
    /// null when it had none.
    void end_cycle(uint32_t result, const char *passed)
    {
        ng_uci_renew_change_context(); // as in a callback of its own
        test().dispatch_complete = true;
        test().test_passed = passed != nullptr;
        snprintf(test().passed_iface, 16, "%s", passed ? passed : test().uplink_iface);
        complete_inet_test(result);
        (void)ng_uci_flush();
    }
    void fail_cycles(int count)
    {
        for (int i = 0; i < count; i++)
            end_cycle(test().upstream_state, nullptr);
    }

    /// Descriptors of this process.
    static auto open_files()
    {
        using entries = std::filesystem::directory_iterator;
        return std::distance(entries("/proc/self/fd"), entries());
    }
    /// Events sent by the daemon since the last call, as "type {json}".
    std::vector<std::string> sent_events()
    {
        settle();
        std::vector<std::string> lines;
        for (const received_event &event : events->all)
            if (!event.type.starts_with("ubus."))
                lines.push_back(event.type + " " + event.document);
        events->all.clear();
        return lines;
    }
};
