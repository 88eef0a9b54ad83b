// libraries: tarn_daemon host_ubox
// The upstream decision over 100 000 cycles on a wire that loses 5 % of the connections, each on
// its own, and everything for 2 s now and then: how often it leaves the wire, next to how often as
// many cycles in a row as are tolerated failed. One such row in 100 000 cycles is rare enough to be
// luck, so several wires are tried. In a sandbox, for a node that leaves its wire runs commands.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <libubox_host/clock.h>
#include <random>

#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "state/owned.h"
#include "wifi/wifi.h"
#include "wired/inet_probe.h"
#include "wired/upstream.h"

constexpr int CYCLES = 100000;
constexpr unsigned WIRES = 10;
constexpr int TOLERANCE = 3;
constexpr int INTERVAL_MS = 5000;
constexpr double CONNECTION_LOSS = 0.05;
constexpr double BURST_S = 2;
constexpr double BETWEEN_BURSTS_S = 60; // on average
constexpr double RETRY_S = 1;           // the kernel's second try, within the time-out of 1.5 s

/// When everything is lost: the burst that is on or comes next.
struct bursts {
    std::mt19937 random;
    std::exponential_distribution<double> gap{1 / BETWEEN_BURSTS_S};
    double begin;

    explicit bursts(unsigned seed) : random(seed), begin(gap(random)) {}

    bool cover(double at)
    {
        while (at > begin + BURST_S)
            begin += BURST_S + gap(random);
        return at >= begin;
    }
};

static bool cycle_passes(bursts *wire, double at, int targets)
{
    if (wire->cover(at) && wire->cover(at + RETRY_S))
        return false;
    std::uniform_real_distribution<double> chance;
    bool passes = false;
    for (int i = 0; i < targets; i++)
        passes |= chance(wire->random) >= CONNECTION_LOSS;
    return passes;
}

static void on_the_wire()
{
    inet_test_state &test = gTarn_net_state.inet_test;
    test.upstream_state = TARN_NET_UPSTREAM_WAN_STATE;
    test.test_failures = 0;
    snprintf(test.uplink_iface, sizeof test.uplink_iface, "br-wired0");
    snprintf(gTarn_net_state.upstream.wired_uplink_bridge, 16, "br-wired0");
}

struct outcome {
    int failed = 0, rows = 0, switches = 0, most_switches = 0;
};

static void run(int targets, unsigned seed, outcome *sum)
{
    outcome seen;
    int row = 0;
    bursts wire(seed);
    inet_test_state &test = gTarn_net_state.inet_test;
    on_the_wire();
    for (int cycle = 0; cycle < CYCLES; cycle++) {
        uloop_clock_run_ms(INTERVAL_MS);
        test.dispatch_complete = true;
        test.test_passed = cycle_passes(&wire, cycle * (INTERVAL_MS / 1000.0), targets);
        memcpy(test.passed_iface, test.uplink_iface, sizeof test.passed_iface);
        row = test.test_passed == 0 ? row + 1 : 0;
        seen.failed += row > 0;
        if (row == TOLERANCE) {
            seen.rows++;
            row = 0;
        }
        complete_inet_test(TARN_NET_UPSTREAM_WAN_STATE);
        if (test.upstream_state == TARN_NET_UPSTREAM_WAN_STATE)
            continue;
        seen.switches++;
        on_the_wire();
    }
    sum->failed += seen.failed;
    sum->rows += seen.rows;
    sum->switches += seen.switches;
    sum->most_switches = std::max(sum->most_switches, seen.switches);
}

int main()
{
    uloop_init();
    platform_detect();
    inet_test_reset();
    (void)wifi_reload_config(true);
    gOnline_settings.failure_tolerance = TOLERANCE;
    uloop_clock_virtual(true);
    for (const int targets : {3, 2, 1}) {
        outcome sum;
        for (unsigned seed = 0; seed < WIRES; seed++)
            run(targets, seed, &sum);
        printf("%d target%s: %.2f %% of the cycles failed; in %d cycles %.1f false switches on "
               "average, %d at most; "
               "%d in all, %d rows of failures\n",
               targets, targets > 1 ? "s" : "", 100.0 * sum.failed / CYCLES / WIRES, CYCLES,
               1.0 * sum.switches / WIRES, sum.most_switches, sum.switches, sum.rows);
    }
}
