// The wireless daemon's object "wifi": a scan takes a moment and ends with the notification
// "wifi.scan.done"; its dump and the channel survey come from a small fixed neighbourhood.
#include "peer.h"

#include <ctime>
#include <memory>

namespace {

constexpr int SCAN_MS = 300;

const blobmsg_policy SCAN_ARGUMENTS[] = {{.name = "dump", .type = BLOBMSG_TYPE_BOOL},
                                         {.name = "ifname", .type = BLOBMSG_TYPE_STRING},
                                         {.name = "on_channel", .type = BLOBMSG_TYPE_BOOL},
                                         {.name = "ap_force", .type = BLOBMSG_TYPE_BOOL}};
const blobmsg_policy SURVEY_ARGUMENTS[] = {{.name = "ifname", .type = BLOBMSG_TYPE_STRING}};
const peer_method METHODS[] = {{"scan", SCAN_ARGUMENTS}, {"survey", SURVEY_ARGUMENTS}};

// One access point of the neighbourhood; a mode's width is null where it does not speak that mode.
struct neighbour_ap {
    const char *band, *ssid, *bssid, *mbm, *modes;
    const char *ht, *vht, *he;
    int channel, channels, wpa_version;
    bool crypto;
};
constexpr neighbour_ap NEIGHBOURHOOD[] = {
    {"2.4GHz", "Corner Cafe", "02:5e:00:00:01:01", "-6100", "b/g/n", "20", nullptr, nullptr, 1, 1,
     2, true},
    {"2.4GHz", "old printer", "02:5e:00:00:01:02", "-8350", "b/g", nullptr, nullptr, nullptr, 11, 1,
     -1, true},
    {"5GHz", "Corner Cafe", "02:5e:00:00:01:03", "-6820", "a/n/ac", "40+", "80", nullptr, 36, 4, 2,
     true},
    {"5GHz", "Upstairs", "02:5e:00:00:01:04", "-7430", "a/n/ac/ax", "40+", "160", "160", 100, 8, 3,
     true},
    {"5GHz", "open house", "02:5e:00:00:01:05", "-7900", "a/n", "40-", nullptr, nullptr, 48, 2, -1,
     false},
};

struct survey_channel {
    const char *frequency;
    int radio;
    bool in_use;
    unsigned busy, rx, tx; // per cent of the active time
};
constexpr survey_channel SURVEY[] = {
    {"2412", 0, false, 40, 30, 0}, {"2437", 0, true, 25, 12, 8}, {"2462", 0, false, 15, 10, 0},
    {"5180", 1, true, 9, 4, 3},    {"5200", 1, false, 5, 3, 0},
};

peer_object *wifi;

struct running_scan {
    uloop_timeout timer;
    std::string ifname;
};

void scan_done(uloop_timeout *timer)
{
    std::unique_ptr<running_scan> scan(reinterpret_cast<running_scan *>(timer));
    blob_buf msg = {};
    blob_buf_init(&msg, 0);
    blobmsg_add_string(&msg, "ifname", scan->ifname.c_str());
    peer_notify(wifi, "wifi.scan.done", msg.head);
    blob_buf_free(&msg);
}

void start_scan(const std::string &ifname)
{
    auto *scan = new running_scan();
    scan->ifname = ifname;
    scan->timer.cb = scan_done;
    uloop_timeout_set(&scan->timer, SCAN_MS);
}

void add_mode(blob_buf *reply, const char *name, const char *width, const neighbour_ap &ap)
{
    if (!width)
        return;
    blobmsg_add_string(reply, name, width);
    void *array = blobmsg_open_array(reply, (std::string(name) + "_channels").c_str());
    for (int i = 0; i < ap.channels; i++)
        blobmsg_add_u32(reply, nullptr, static_cast<uint32_t>(ap.channel + 4 * i));
    blobmsg_close_array(reply, array);
}

void add_bss(blob_buf *reply, const neighbour_ap &ap)
{
    void *table = blobmsg_open_table(reply, nullptr);
    blobmsg_add_string(reply, "band", ap.band);
    blobmsg_add_u32(reply, "channel", static_cast<uint32_t>(ap.channel));
    add_mode(reply, "ht", ap.ht, ap);
    add_mode(reply, "vht", ap.vht, ap);
    add_mode(reply, "he", ap.he, ap);
    blobmsg_add_string(reply, "ssid", ap.ssid);
    blobmsg_add_string(reply, "bssid", ap.bssid);
    blobmsg_add_u16(reply, "crypto", ap.crypto);
    if (ap.wpa_version >= 0) {
        blobmsg_add_u16(reply, "wpa_version", static_cast<uint16_t>(ap.wpa_version));
        blobmsg_add_string(reply, "auth_suites", "PSK");
        blobmsg_add_string(reply, "cipher", "CCMP");
    }
    blobmsg_add_string(reply, "mbm", ap.mbm);
    blobmsg_add_string(reply, "wifi_modes", ap.modes);
    blobmsg_close_table(reply, table);
}

void dump_scan(const std::string &ifname, blob_buf *reply)
{
    void *array = blobmsg_open_array(reply, ifname.c_str());
    for (auto &ap : NEIGHBOURHOOD)
        add_bss(reply, ap);
    blobmsg_close_array(reply, array);
}

// The counters run from this process's start, in ms, as a driver's run from the interface's.
void survey(const std::string &ifname, blob_buf *reply)
{
    static const time_t started = time(nullptr);
    auto active = static_cast<uint64_t>(time(nullptr) - started + 1) * 1000;
    int radio = ifname.starts_with("ap") && ifname.size() > 2 ? ifname[2] - '0' : 0;
    for (auto &channel : SURVEY) {
        if (channel.radio != radio)
            continue;
        void *table = blobmsg_open_table(reply, channel.frequency);
        blobmsg_add_u64(reply, "active", active);
        blobmsg_add_u64(reply, "busy", active * channel.busy / 100);
        blobmsg_add_u64(reply, "tx", active * channel.tx / 100);
        blobmsg_add_u64(reply, "rx", active * channel.rx / 100);
        blobmsg_add_u8(reply, "in_use", channel.in_use);
        blobmsg_close_table(reply, table);
    }
}

int wifi_call(const peer_object &, const std::string &method, blob_attr *msg, blob_buf *reply)
{
    std::string ifname = peer_string(msg, "ifname");
    peer_journal(method + " " + peer_json(msg));
    if (ifname.empty())
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (method == "survey")
        survey(ifname, reply);
    else if (peer_int(msg, "dump", 0))
        dump_scan(ifname, reply);
    else
        start_scan(ifname);
    return UBUS_STATUS_OK;
}

void start()
{
    wifi = peer_publish("wifi", METHODS, wifi_call);
}

} // namespace

int main()
{
    return peer_run("sim_u80211d", start);
}
