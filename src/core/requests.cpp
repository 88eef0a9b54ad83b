// Who does what the wireless package asks of the rest of the node.
#include "wifi/wifi.h"
#include "wired/forwarding.h"
#include "wired/inet_probe.h"
#include "wired/upstream.h"

static void test_uplink()
{
    inet_test_count_passed();
    run_uplink_test();
}

constinit const wifi_requests gWifi_requests = {
    .reload_config = run_reload_config,
    .forward_ssids = set_ssid_forwarding,
    .test_uplink = test_uplink,
};
