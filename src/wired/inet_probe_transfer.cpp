// One connection attempt of the internet test: TCP, and TLS for a TLS target, without a request,
// bound to one interface. Its outcome is counted here.
//
// What one report makes of the cycle:
//
//   aborted                        counted, completes nothing
//   failed                         result = the present state
//   connected, mesh interface      result = MESH
//   connected, wired, state known  result = WAN; the cycle is complete, the rest gets aborted
//   connected, wired, state NONE   switch to WAN at once; result = WAN
#include <algorithm>
#include <cstdio>

#include "platform/zu/log.h"
#include "state/owned.h"
#include "wired/inet_probe.h"
#include "wired/inet_probe_internal.h"
#include "wired/upstream.h"

constexpr long CONNECT_TIMEOUT_MS = 1500;
/// How long libcurl remembers a name's addresses at most. Each cycle looks them up anew: a provider
/// that comes back may answer with others.
constexpr int32_t NAMES_REMEMBERED_S = 60;

static inet_test_slot *slot_of(uloop_curl_easy *easy)
{
    return container_of(easy, inet_test_slot, easy);
}

/// Leaves NONE for WAN without waiting for the rest of the cycle.
static void enter_wan_at_once()
{
    inet_test_state &test = gTarn_net_state.inet_test;
    if (upstream_enter_wan_from_none())
        test.test_run_count = static_cast<int32_t>(test.tests_to_run);
    else
        log_error("Failed to update the uplink interface");
}

static uint32_t count_success(const inet_test_slot *slot)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    log_info("Connection to %s on %s successful", slot->target->url, slot->interface);
    inet_test_count_passed();
    snprintf(test.passed_iface, sizeof test.passed_iface, "%s", slot->interface);
    if (slot->interface_idx != 0) {
        test.test_run_count++;
        return TARN_NET_UPSTREAM_MESH_STATE;
    }
    if (test.upstream_state == TARN_NET_UPSTREAM_NONE)
        enter_wan_at_once();
    else
        test.test_run_count = static_cast<int32_t>(test.tests_to_run);
    return TARN_NET_UPSTREAM_WAN_STATE;
}

static uint32_t count_failure(CURLcode code)
{
    inet_test_state &test = gTarn_net_state.inet_test;
    log_notice("Connection failed. %s:%d.", curl_easy_strerror(code), code);
    if (uloop_curl_lacks_error_texts())
        log_notice("Code %d of libcurl: %s", code, uloop_curl_error_text(code));
    test.test_run_count++;
    return test.upstream_state;
}

static void uplink_test_cb(uloop_curl_easy *easy)
{
    if (!easy) {
        log_error("%s is NULL", "uloop_easy");
        return;
    }
    inet_test_state &test = gTarn_net_state.inet_test;
    const inet_test_slot *slot = slot_of(easy);
    if (easy->result == CURLE_ABORTED_BY_CALLBACK) {
        log_debug("Test %d on %s aborted", slot->url_idx, slot->interface);
        uloop_curl_easy_destroy(easy);
        test.test_run_count++;
        return;
    }
    inet_test_note_outcome(slot, easy->result);
    const uint32_t result =
        easy->result == CURLE_OK ? count_success(slot) : count_failure(easy->result);
    log_debug("Tests run: %d/%u on interface '%s', This test inet_test->url_idx: %d, result: %u",
              test.test_run_count, test.tests_to_run, slot->interface, slot->url_idx,
              test.test_passed);
    uloop_curl_easy_destroy(easy);
    if (inet_test_all_reported())
        inet_test_finish_if_complete(result);
}

static void drop_handle(uloop_curl_easy *easy)
{
    curl_easy_cleanup(easy->easy);
    easy->easy = nullptr;
}

static bool configure(inet_test_slot *slot)
{
    CURL *curl = slot->easy.easy;
    int failed = curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, CONNECT_TIMEOUT_MS);
    failed |= curl_easy_setopt(curl, CURLOPT_URL, slot->target->url);
    failed |= curl_easy_setopt(curl, CURLOPT_VERBOSE, 0L);
    failed |= curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L);
    failed |= curl_easy_setopt(
        curl, CURLOPT_DNS_CACHE_TIMEOUT,
        static_cast<long>(std::min(NAMES_REMEMBERED_S, inet_test_settings().test_interval)));
    if (!slot->interface || slot->interface[0] == '\0') {
        log_error("Requires an interface to test");
        return false;
    }
    // With "if!" a name that is no interface fails; without it libcurl would take it for a host and
    // hold the loop up while it looks that host up.
    char bind_to[sizeof "if!" + sizeof inet_test_state::interface_names[0]];
    snprintf(bind_to, sizeof bind_to, "if!%s", slot->interface);
    failed |= curl_easy_setopt(curl, CURLOPT_INTERFACE, bind_to);
    if (failed != 0)
        log_error("Failed to configure curl");
    return failed == 0;
}

bool dispatch_curl_inet_test(inet_test_slot *slot)
{
    slot->easy.cb = uplink_test_cb;
    if (uloop_curl_easy_create(&gTarn_net_state.inet_test.curl, &slot->easy) != 0) {
        log_error("Unable to create curl transaction for async time fetch");
        return false;
    }
    if (!configure(slot)) {
        drop_handle(&slot->easy);
        return false;
    }
    log_info("Testing connection to %s url_idx %d on interface %s ...", slot->target->url,
             slot->url_idx, slot->interface);
    (void)uloop_curl_easy_start(&slot->easy);
    return true;
}

void abort_slot(inet_test_slot *slot)
{
    if (slot->easy.easy) {
        log_debug("Abort url_idx %d inet_test", slot->url_idx);
        uloop_curl_easy_abort(&slot->easy);
    }
    if (slot->easy.easy) // never started, so nothing was reported
        uloop_curl_easy_destroy(&slot->easy);
    slot->target = nullptr;
    slot->interface = nullptr;
}
