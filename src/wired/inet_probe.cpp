// Settings and cycles of the internet test. One transfer each is inet_probe_transfer.cpp's.
//
//             tick                        last slot dispatched and
//   idle ───────────────► running ───── as many reports as tests ────► complete_inet_test
//    ▲                      └─ older than a minute and ten ticks ─────────────► │
//    └────────────────────────────── abort_inet_test ◄────────────────────────┘
//
// A test that could not be dispatched never reports: its cycle stays open until the settings are
// loaded again, or until a tick finds that nothing can end it any more.
#include "wired/inet_probe.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "mesh/mesh.h"
#include "platform/zu/clock.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "state/owned.h"
#include "wired/inet_probe_internal.h"
#include "wired/netifd/enumeration.h"
#include "wired/netifd/iface.h"
#include "wired/upstream.h"

constexpr int DEFAULT_FAILURE_TOLERANCE = 3;
constexpr int READ_AGAIN_MS = 1000;
/// A cycle that cannot end is given up when it is older than both.
constexpr int STUCK_TICKS = 10;
constexpr int64_t STUCK_S = 60;
constexpr char NO_TARGETS[] = "Failed to get inet_test_targets from uci, using old list";
constexpr char NOT_STARTED[] = "The test target list is empty or the check interval is less than "
                               "0, will not start the inet test timer";

/// As read; the one in force may have been raised since.
static int32_t gRead_tolerance;

static void inet_test_handler(uloop_timeout *timer);

static void arm_interval_timer()
{
    uloop_timeout *timer = &gTarn_net_state.inet_test.timer;
    timer->cb = inet_test_handler;
    uloop_timeout_set(timer, std::min(gOnline_settings.test_interval, INT_MAX / 1000) * 1000);
}

void inet_test_reset()
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (test.curl.multi) {
        abort_inet_test();
        uloop_curl_cleanup(&test.curl);
    }
    uloop_timeout_cancel(&test.timer);
    uloop_timeout_cancel(&test.read_timer);
    upstream_reset();
    iface_enumeration_reset(&gTarn_net_state.bridges);
    mesh_reset();
    static_assert(std::is_trivially_copyable_v<tarn_net_state>, "cleared as memory");
    memset(&gTarn_net_state, 0, sizeof gTarn_net_state);
    INIT_LIST_HEAD(&gTarn_net_state.bridges.list);
    INIT_LIST_HEAD(&gTarn_net_state.mesh.list);
    iface_enumeration_tell_end(inet_test_enumeration_ended);
    if (uloop_curl_init(&test.curl) != 0)
        log_error("Failed to set up transfers for the inet test");
}

void inet_test_init()
{
    (void)reload_inet_test_config();
    gTarn_net_state.inet_test.uplink_iface[0] = '\0';
    upstream_set_state(TARN_NET_UPSTREAM_NONE);
    if (inet_test_is_configured())
        arm_interval_timer();
}

static list_head *new_target_list()
{
    auto *head = new (std::nothrow) list_head;
    if (head)
        INIT_LIST_HEAD(head);
    return head;
}

static uint32_t count_entries(list_head *head)
{
    uint32_t count = 0;
    list_head *entry;
    list_for_each(entry, head) count++;
    return count;
}

static void read_again_cb(uloop_timeout *timer)
{
    {
        const zu_log_repetition said;
        if (ng_uci_check_readable("tarn_net") == NG_UCI_UNREADABLE) {
            uloop_timeout_set(timer, READ_AGAIN_MS);
            return;
        }
    }
    (void)reload_inet_test_config();
}

/// False (logged) when memory runs out.
static bool read_settings(online_settings *fresh)
{
    fresh->targets = new_target_list();
    if (!fresh->targets) {
        log_error("Failed to allocate memory for inet_test targets list");
        return false;
    }
    // The text says otherwise, but a list that is not there is an empty one.
    if (get_tarn_host_list_uci("tarn_net", "inet_test_targets", fresh->targets) == 0)
        log_warning("%s", NO_TARGETS);
    fresh->target_count = count_entries(fresh->targets);
    fresh->failure_tolerance = DEFAULT_FAILURE_TOLERANCE;
    (void)ng_uci_get_int(&fresh->failure_tolerance, "tarn_net.inet_test_config.failure_tolerance");
    fresh->failure_tolerance = std::max(fresh->failure_tolerance, 1); // else a pass were a failure
    (void)ng_uci_get_int(&fresh->test_interval, "tarn_net.inet_test_config.test_interval");
    return true;
}

static void destroy_targets(list_head *targets)
{
    if (targets)
        destroy_tarn_host_list(targets);
    delete targets;
}

static void put_into_force(const online_settings &fresh)
{
    abort_inet_test();
    destroy_targets(gOnline_settings.targets);
    gOnline_settings = fresh;
    gOnline_settings.taken_at_s = zu_monotonic_s();
    inet_test_forget_outcomes();
    gRead_tolerance = fresh.failure_tolerance;
    if (inet_test_is_configured()) {
        arm_interval_timer();
        return;
    }
    log_info("%s", NOT_STARTED);
    uloop_timeout_cancel(&gTarn_net_state.inet_test.timer);
    gTarn_net_state.inet_test.timer.cb = nullptr;
}

static bool same_targets(list_head *left, list_head *right)
{
    list_head *a = left->next, *b = right->next;
    for (; a != left && b != right; a = a->next, b = b->next) {
        if (strcmp(list_entry(a, tarn_host, list)->url, list_entry(b, tarn_host, list)->url) != 0)
            return false;
    }
    return a == left && b == right;
}

static bool in_force(const online_settings &fresh)
{
    return gOnline_settings.targets && fresh.test_interval == gOnline_settings.test_interval &&
           fresh.failure_tolerance == gRead_tolerance &&
           same_targets(fresh.targets, gOnline_settings.targets);
}

/// A bus status. Settings that cannot be read now are read later, which is no failure.
static int reread_settings(bool also_same)
{
    uloop_timeout *timer = &gTarn_net_state.inet_test.read_timer;
    if (ng_uci_check_readable("tarn_net") == NG_UCI_UNREADABLE) {
        log_warning("%s", NO_TARGETS);
        timer->cb = read_again_cb;
        uloop_timeout_set(timer, READ_AGAIN_MS);
        return UBUS_STATUS_OK;
    }
    uloop_timeout_cancel(timer);
    online_settings fresh{};
    if (!read_settings(&fresh))
        return UBUS_STATUS_UNKNOWN_ERROR;
    if (also_same || !in_force(fresh))
        put_into_force(fresh);
    else
        destroy_targets(fresh.targets);
    return UBUS_STATUS_OK;
}

int reload_inet_test_config()
{
    return reread_settings(true);
}

int inet_test_take_pushed_config()
{
    return reread_settings(false);
}

/// At a tick: the way out of a cycle with a test that will never report. Even one in flight would
/// have, long since.
static void give_up_stuck_cycle()
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (test.interfaces_to_test == 0)
        return;
    test.ticks_in_cycle++;
    const int64_t age_s =
        static_cast<int64_t>(test.ticks_in_cycle) * gOnline_settings.test_interval;
    if (test.ticks_in_cycle <= STUCK_TICKS || age_s <= STUCK_S)
        return;
    log_warning("The internet test cannot end (%d of %u reported), counting it as failed",
                test.test_run_count, test.tests_to_run);
    test.test_passed = 0;
    test.dispatch_complete = true;
    inet_test_finish_if_complete(test.upstream_state);
}

static void inet_test_handler(uloop_timeout *)
{
    if (!inet_test_is_configured()) {
        log_info("%s", NOT_STARTED);
        return;
    }
    give_up_stuck_cycle();
    run_uplink_test();
    // Also when the cycle just started changed the settings: the next one is timed from here.
    if (inet_test_is_configured())
        arm_interval_timer();
}

static bool enumeration_in_progress()
{
    const bool wired = gTarn_net_state.bridges.enumerate_timer.pending;
    if (!wired && !gTarn_net_state.mesh.enumerate_timer.pending)
        return false;
    log_debug("%s enumeration in progress, delaying inet_check", wired ? "Wired" : "Mesh");
    gTarn_net_state.inet_test.cycle_delayed = true;
    return true;
}

void inet_test_enumeration_ended()
{
    if (std::exchange(gTarn_net_state.inet_test.cycle_delayed, false) && inet_test_is_configured())
        run_uplink_test();
}

/// Why no cycle can start now is logged; true when one can.
static bool ready_for_cycle()
{
    const inet_test_state &test = gTarn_net_state.inet_test;
    if (!inet_test_is_configured()) {
        log_debug("No internet test is configured");
        return false;
    }
    if (enumeration_in_progress())
        return false;
    if (inet_test_all_reported() && test.interfaces_to_test == 0)
        return true;
    log_info("Previous test still in progress, skipping this inet_check");
    log_debug("test_run_count = %d, tests_to_run = %u, interfaces_to_test = %d",
              test.test_run_count, test.tests_to_run, test.interfaces_to_test);
    return false;
}

bool inet_test_all_reported()
{
    const inet_test_state &test = gTarn_net_state.inet_test;
    return static_cast<uint32_t>(test.test_run_count) == test.tests_to_run;
}

/// Names block `index`'s interface, once for its slots: `mesh_iface`'s device, or the wired uplink.
static const char *name_block(int index, const iface_entry *mesh_iface)
{
    auto &name = gTarn_net_state.inet_test.interface_names[index];
    const char *bridge = gTarn_net_state.upstream.wired_uplink_bridge;
    const char *wired = bridge[0] != '\0' ? bridge : "br-wired0";
    snprintf(name, sizeof name, "%s", mesh_iface ? mesh_iface->device : wired);
    return name;
}

static void dispatch_block(int index, const iface_entry *mesh_iface)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    const char *name = name_block(index, mesh_iface);
    test.interfaces_to_test++;
    test.tests_to_run += gOnline_settings.target_count;
    int url_idx = 0;
    tarn_host *target;
    list_for_each_entry(target, gOnline_settings.targets, list)
    {
        if (url_idx == INET_TEST_TARGETS) // the list was longer than it may be
            return;
        inet_test_slot *slot = &test.slots[index][url_idx];
        slot->url_idx = url_idx++;
        slot->interface_idx = index;
        slot->target = target;
        slot->interface = name;
        log_debug("Test %s uplink on %s", index == 0 ? "wired" : "mesh", name);
        if (!dispatch_curl_inet_test(slot))
            log_debug("Failed to dispatch_curl_inet_test");
    }
}

/// The first mesh interface that is up and has a device, from `position` on; null at the list's
/// end.
static iface_entry *next_mesh_iface(list_head *position)
{
    for (; position != &gTarn_net_state.mesh.list; position = position->next) {
        auto *entry = list_entry(position, iface_entry, link);
        if (entry->up && entry->device[0] != '\0')
            return entry;
    }
    return nullptr;
}

static void dispatch_mesh_blocks()
{
    list_head *position = gTarn_net_state.mesh.list.next;
    for (int index = 1; index < INET_TEST_INTERFACES; index++) {
        iface_entry *entry = next_mesh_iface(position);
        if (!entry)
            return;
        // A mesh interface of the node's own network is up: what it says counts, not neighbours.
        if (!strstr(entry->obj_path, "orph_conn"))
            upstream_cancel_neighbor_check();
        dispatch_block(index, entry);
        position = entry->link.next;
    }
}

void run_uplink_test()
{
    if (!ready_for_cycle())
        return;
    inet_test_state &test = gTarn_net_state.inet_test;
    test.dispatch_complete = false;
    test.tests_to_run = 0;
    test.test_run_count = 0;
    test.test_passed = 0;
    test.ticks_in_cycle = 0;
    memcpy(test.passed_iface, test.uplink_iface, sizeof test.passed_iface);
    dispatch_block(0, nullptr);
    if (test.upstream_state > TARN_NET_UPSTREAM_WAN_STATE)
        dispatch_mesh_blocks();
    test.dispatch_complete = true;
    if (inet_test_all_reported())
        inet_test_finish_if_complete(test.upstream_state);
}

void abort_inet_test()
{
    inet_test_state &test = gTarn_net_state.inet_test;
    for (int block = 0; block < test.interfaces_to_test; block++) {
        for (inet_test_slot &slot : test.slots[block])
            abort_slot(&slot);
    }
    test.interfaces_to_test = 0;
    test.tests_to_run = 0;
    test.test_run_count = 0;
}

void inet_test_count_passed()
{
    gTarn_net_state.inet_test.test_passed = 1;
}

void inet_test_raise_tolerance(int failed_cycles)
{
    gOnline_settings.failure_tolerance = failed_cycles;
}

void inet_test_finish_if_complete(uint32_t result)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (!test.dispatch_complete)
        return;
    test.last_verdict = {zu_monotonic_s(), test.test_passed != 0, result};
    complete_inet_test(result);
}
