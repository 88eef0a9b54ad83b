// The wireless daemon's object "wifi": a scan takes a moment and ends with the notification
// "wifi.scan.done"; its dump is the neighbourhood as its file has it now, the survey tells of
// radios under a load that comes and goes.
#include <cmath>
#include <ctime>
#include <memory>

#include "neighbourhood.h"
#include "peer.h"

constexpr int SCAN_MS = 300;

static const blobmsg_policy SCAN_ARGUMENTS[] = {{.name = "dump", .type = BLOBMSG_TYPE_BOOL},
                                                {.name = "ifname", .type = BLOBMSG_TYPE_STRING},
                                                {.name = "on_channel", .type = BLOBMSG_TYPE_BOOL},
                                                {.name = "ap_force", .type = BLOBMSG_TYPE_BOOL}};
static const blobmsg_policy SURVEY_ARGUMENTS[] = {{.name = "ifname", .type = BLOBMSG_TYPE_STRING}};
static const peer_method METHODS[] = {{"scan", SCAN_ARGUMENTS}, {"survey", SURVEY_ARGUMENTS}};

constexpr char NEIGHBOURHOOD[] = "/var/sim/neighbourhood";

/// A channel of a radio and its mean load.
struct survey_channel {
    const char *frequency;
    int radio;
    bool in_use;
    double busy, rx, tx; // share of the active time
};
constexpr survey_channel SURVEY[] = {
    {"2412", 0, false, .40, .30, 0}, {"2437", 0, true, .25, .12, .08},
    {"2462", 0, false, .15, .10, 0}, {"5180", 1, true, .09, .04, .03},
    {"5200", 1, false, .05, .03, 0},
};
/// The load swells to twice its mean and dies down once in this time.
constexpr double LOAD_PERIOD_MS = 900e3;

static peer_object *wifi;

struct running_scan {
    uloop_timeout timer;
    std::string ifname;
};

static void scan_done(uloop_timeout *timer)
{
    std::unique_ptr<running_scan> scan(reinterpret_cast<running_scan *>(timer));
    blob_buf msg = {};
    blob_buf_init(&msg, 0);
    blobmsg_add_string(&msg, "ifname", scan->ifname.c_str());
    peer_notify(wifi, "wifi.scan.done", msg.head);
    blob_buf_free(&msg);
}

static void start_scan(const std::string &ifname)
{
    auto *scan = new running_scan();
    scan->ifname = ifname;
    scan->timer.cb = scan_done;
    uloop_timeout_set(&scan->timer, SCAN_MS);
}

/// A mode with its width and channels, unless the access point does not speak it.
static void add_mode(blob_buf *reply, const char *name, const std::string &width,
                     const neighbour_ap &ap)
{
    blobmsg_add_string(reply, name, width.c_str());
    void *array = blobmsg_open_array(reply, (std::string(name) + "_channels").c_str());
    for (int channel : neighbourhood_channels(ap, width))
        blobmsg_add_u32(reply, nullptr, static_cast<uint32_t>(channel));
    blobmsg_close_array(reply, array);
}

/// A radio lists its newer modes besides the older ones, which are not as wide.
static void add_modes(blob_buf *reply, const neighbour_ap &ap)
{
    const bool he = ap.mode == "he", vht = he || ap.mode == "vht", ht = vht || ap.mode == "ht";
    const std::string narrow = ap.width == "20" ? "20" : "40";
    if (ht && ap.band != "6GHz")
        add_mode(reply, "ht", narrow, ap);
    if (vht && ap.band == "5GHz")
        add_mode(reply, "vht", ap.width, ap);
    if (he)
        add_mode(reply, "he", ap.width, ap);
}

static void add_security(blob_buf *reply, const neighbour_ap &ap)
{
    blobmsg_add_u16(reply, "crypto", ap.security != "open");
    if (!ap.security.starts_with("wpa"))
        return;
    const char digit = ap.security.size() > 3 ? ap.security[3] : '1';
    blobmsg_add_u16(reply, "wpa_version", static_cast<uint16_t>(digit - '0'));
    blobmsg_add_string(reply, "auth_suites", ap.security.ends_with("-eap") ? "802.1X" : "PSK");
    blobmsg_add_string(reply, "cipher", digit == '1' ? "TKIP" : "CCMP");
}

static std::string modes_of(const neighbour_ap &ap)
{
    std::string modes = ap.band == "2.4GHz" ? "b/g" : ap.band == "5GHz" ? "a" : "";
    if (ap.mode != "legacy" && ap.band != "6GHz")
        modes += "/n";
    if ((ap.mode == "vht" || ap.mode == "he") && ap.band == "5GHz")
        modes += "/ac";
    if (ap.mode == "he")
        modes += modes.empty() ? "ax" : "/ax";
    return modes;
}

static void add_bss(blob_buf *reply, const neighbour_ap &ap)
{
    void *table = blobmsg_open_table(reply, nullptr);
    blobmsg_add_string(reply, "band", ap.band.c_str());
    blobmsg_add_u32(reply, "channel", static_cast<uint32_t>(ap.channel));
    add_modes(reply, ap);
    blobmsg_add_field(reply, BLOBMSG_TYPE_STRING, "ssid", ap.ssid.c_str(),
                      static_cast<unsigned>(ap.ssid.size()) + 1); // it may hold a 0
    blobmsg_add_string(reply, "bssid", ap.bssid.c_str());
    add_security(reply, ap);
    blobmsg_add_string(reply, "mbm", std::to_string(lround(ap.dbm * 100)).c_str());
    blobmsg_add_string(reply, "wifi_modes", modes_of(ap).c_str());
    blobmsg_close_table(reply, table);
}

static void dump_scan(const std::string &ifname, blob_buf *reply)
{
    void *array = blobmsg_open_array(reply, ifname.c_str());
    for (const neighbour_ap &ap : neighbourhood_read(NEIGHBOURHOOD))
        add_bss(reply, ap);
    blobmsg_close_array(reply, array);
}

static double milliseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// The counters run from this process's start, in ms, as a driver's run from the interface's: each
/// is the load up to now, added up, so they never go back.
static void survey(const std::string &ifname, blob_buf *reply)
{
    static const double started = milliseconds() - 1000;
    const double active = milliseconds() - started;
    const double turn = 2 * M_PI / LOAD_PERIOD_MS;
    const double loaded = active + (1 - cos(active * turn)) / turn;
    int radio = ifname.starts_with("ap") && ifname.size() > 2 ? ifname[2] - '0' : 0;
    for (auto &channel : SURVEY) {
        if (channel.radio != radio)
            continue;
        void *table = blobmsg_open_table(reply, channel.frequency);
        blobmsg_add_u64(reply, "active", static_cast<uint64_t>(active));
        blobmsg_add_u64(reply, "busy", static_cast<uint64_t>(loaded * channel.busy));
        blobmsg_add_u64(reply, "tx", static_cast<uint64_t>(loaded * channel.tx));
        blobmsg_add_u64(reply, "rx", static_cast<uint64_t>(loaded * channel.rx));
        blobmsg_add_u8(reply, "in_use", channel.in_use);
        blobmsg_close_table(reply, table);
    }
}

static int wifi_call(const peer_object &, const std::string &method, blob_attr *msg,
                     blob_buf *reply)
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

static void start()
{
    wifi = peer_publish("wifi", METHODS, wifi_call);
}

int main()
{
    return peer_run("sim_u80211d", start);
}
