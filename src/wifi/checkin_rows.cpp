// The rows, table by table: key, type, meaning, and where the value comes from.
#include "wifi/checkin_rows.h"

#include <iterator>

constexpr char SETTINGS[] = "settings";
constexpr char STATE[] = "daemon";
constexpr char NL80211[] = "nl80211";
constexpr char SURVEY[] = "u80211d, the last two surveys";
constexpr char SCAN[] = "u80211d, the last scan";
constexpr char BATCTL[] = "batctl";
constexpr char PLATFORM[] = "platform.json";

template <size_t N>
constexpr checkin_level level(const char *name, const checkin_row *const (&rows)[N])
{
    return {name, {rows, N}};
}

// upstream

constinit const checkin_row UPSTREAM_STATE = {"state", CHECKIN_TEXT, "name of the upstream state",
                                              STATE, true};
constinit const checkin_row UPSTREAM_SINCE = {
    "since", CHECKIN_LONG, "when it was entered, seconds since 1970", STATE, true};
constinit const checkin_row UPSTREAM_IFACE = {"interface", CHECKIN_TEXT,
                                              "the interface that leads out", STATE};
constexpr const checkin_row *UPSTREAM_ROWS[] = {&UPSTREAM_STATE, &UPSTREAM_SINCE, &UPSTREAM_IFACE};
constexpr checkin_level UPSTREAM = level("upstream", UPSTREAM_ROWS);

// radios

constinit const checkin_row USE_BUSY = {
    "busy", CHECKIN_NUMBER, "share of the time that the channel was busy, 0 to 1", SURVEY, true};
constinit const checkin_row USE_RX = {
    "rx", CHECKIN_NUMBER, "share of the time that the radio received, 0 to 1", SURVEY, true};
constinit const checkin_row USE_TX = {
    "tx", CHECKIN_NUMBER, "share of the time that the radio sent, 0 to 1", SURVEY, true};
constexpr const checkin_row *USE_ROWS[] = {&USE_BUSY, &USE_RX, &USE_TX};
constexpr checkin_level USE = level("utilization", USE_ROWS);

constinit const checkin_row STATION_MAC = {"mac", CHECKIN_TEXT, "MAC address", NL80211, true};
constinit const checkin_row STATION_SSID_INDEX = {"ssid_index", CHECKIN_INT,
                                                  "the SSID it joined, 1 to 4", NL80211, true};
constinit const checkin_row STATION_SIGNAL = {"signal", CHECKIN_INT, "received signal, dBm",
                                              NL80211};
constinit const checkin_row STATION_RX_RATE = {"rx_rate", CHECKIN_INT,
                                               "rate of what it sent last, kbit/s", NL80211};
constinit const checkin_row STATION_TX_RATE = {"tx_rate", CHECKIN_INT,
                                               "rate of what it was sent last, kbit/s", NL80211};
constinit const checkin_row STATION_RX_BYTES = {"rx_bytes", CHECKIN_LONG, "bytes received from it",
                                                NL80211, true};
constinit const checkin_row STATION_TX_BYTES = {"tx_bytes", CHECKIN_LONG, "bytes sent to it",
                                                NL80211, true};
constexpr const checkin_row *STATION_ROWS[] = {
    &STATION_MAC,     &STATION_SSID_INDEX, &STATION_SIGNAL,  &STATION_RX_RATE,
    &STATION_TX_RATE, &STATION_RX_BYTES,   &STATION_TX_BYTES};
constexpr checkin_level STATION = level("station", STATION_ROWS);

constinit const checkin_row RADIO_INDEX = {"index", CHECKIN_INT, "number of the radio, from 0",
                                           PLATFORM, true};
constinit const checkin_row RADIO_BAND = {"band", CHECKIN_TEXT, "name of its band", PLATFORM};
constinit const checkin_row RADIO_ENABLE = {"enable", CHECKIN_BOOL, "it is configured to be on",
                                            SETTINGS, true};
constinit const checkin_row RADIO_CHANNEL = {"channel", CHECKIN_INT, "the channel it is on",
                                             NL80211};
constinit const checkin_row RADIO_FREQUENCY = {"frequency", CHECKIN_INT,
                                               "middle of that channel, MHz", NL80211};
constinit const checkin_row RADIO_WIDTH = {"width", CHECKIN_INT, "width of what it uses, MHz",
                                           NL80211};
constinit const checkin_row RADIO_TXPOWER = {"txpower", CHECKIN_INT, "transmit power, dBm",
                                             NL80211};
constinit const checkin_row RADIO_ROLES = {
    "roles", CHECKIN_TEXTS, "what its interfaces are for: ap, mesh, orphan, scan", NL80211, false};
constinit const checkin_row RADIO_MODE = {"mode", CHECKIN_TEXT, "HT mode", SETTINGS};
constinit const checkin_row RADIO_UTILIZATION = {
    "utilization", CHECKIN_TABLE, "use of the channel between the last two surveys",
    SURVEY,        false,         &USE};
constinit const checkin_row RADIO_STATIONS = {
    "stations", CHECKIN_TABLES, "who has joined its access points", NL80211, false, &STATION};
constinit const checkin_row RADIO_STATIONS_OMITTED = {
    "stations_omitted", CHECKIN_INT, "stations for which there was no room", NL80211};
constexpr const checkin_row *RADIO_ROWS[] = {
    &RADIO_INDEX,     &RADIO_BAND,        &RADIO_ENABLE,   &RADIO_CHANNEL,
    &RADIO_FREQUENCY, &RADIO_WIDTH,       &RADIO_TXPOWER,  &RADIO_ROLES,
    &RADIO_MODE,      &RADIO_UTILIZATION, &RADIO_STATIONS, &RADIO_STATIONS_OMITTED};
constexpr checkin_level RADIO = level("radio", RADIO_ROWS);

// neighbors, mesh, dfs

constinit const checkin_row NEIGHBOR_RADIO = {"radio", CHECKIN_INT, "the radio that hears it",
                                              NL80211, true};
constinit const checkin_row NEIGHBOR_MAC = {"mac", CHECKIN_TEXT,
                                            "MAC address of its mesh interface", NL80211, true};
constinit const checkin_row NEIGHBOR_SIGNAL = {"signal", CHECKIN_INT, "received signal, dBm",
                                               NL80211};
constinit const checkin_row NEIGHBOR_RX_RATE = {"rx_rate", CHECKIN_INT,
                                                "rate of what it sent last, kbit/s", NL80211};
constinit const checkin_row NEIGHBOR_TX_RATE = {"tx_rate", CHECKIN_INT,
                                                "rate of what it was sent last, kbit/s", NL80211};
constexpr const checkin_row *NEIGHBOR_ROWS[] = {&NEIGHBOR_RADIO, &NEIGHBOR_MAC, &NEIGHBOR_SIGNAL,
                                                &NEIGHBOR_RX_RATE, &NEIGHBOR_TX_RATE};
constexpr checkin_level NEIGHBOR = level("neighbor", NEIGHBOR_ROWS);

constinit const checkin_row MESH_GATEWAY = {"gateway", CHECKIN_TEXT,
                                            "MAC address of the mesh gateway", BATCTL};
constinit const checkin_row MESH_QUALITY = {"gateway_quality", CHECKIN_TEXT,
                                            "link quality to it, 0 to 255", BATCTL};
constinit const checkin_row MESH_ROUTE = {
    "gateway_route", CHECKIN_TEXT, "MAC addresses of the hops to it, with commas between", BATCTL};
constinit const checkin_row MESH_LATENCY = {"gateway_latency", CHECKIN_TEXT,
                                            "mean round trip to it, ms", BATCTL};
constinit const checkin_row MESH_SPEED = {"gateway_speed", CHECKIN_TEXT,
                                          "throughput to it, number and unit", BATCTL};
constexpr const checkin_row *MESH_ROWS[] = {&MESH_GATEWAY, &MESH_QUALITY, &MESH_ROUTE,
                                            &MESH_LATENCY, &MESH_SPEED};
constexpr checkin_level MESH = level("mesh", MESH_ROWS);

constinit const checkin_row DFS_EVENT = {
    "event_detected", CHECKIN_BOOL, "radar was seen and no check-in has reported the channel yet",
    NL80211, true};
constinit const checkin_row DFS_USABLE = {
    "usable", CHECKIN_INTS, "radar channels that may be used now or after a check", NL80211, false};
constexpr const checkin_row *DFS_ROWS[] = {&DFS_EVENT, &DFS_USABLE};
constexpr checkin_level DFS = level("dfs", DFS_ROWS);

// delayed, override

constinit const checkin_row DELAYED_STATE = {
    "state", CHECKIN_TEXT, "staged (not confirmed yet) or pending (its time runs)", STATE, true};
constinit const checkin_row DELAYED_SECONDS_LEFT = {"seconds_left", CHECKIN_INT,
                                                    "until it is applied, s", STATE};
constinit const checkin_row DELAYED_UNTIL = {"until", CHECKIN_LONG,
                                             "when it is applied, seconds since 1970", STATE};
constexpr const checkin_row *DELAYED_ROWS[] = {&DELAYED_STATE, &DELAYED_SECONDS_LEFT,
                                               &DELAYED_UNTIL};
constexpr checkin_level DELAYED = level("delayed", DELAYED_ROWS);

constinit const checkin_row OVERRIDE_NONCE = {
    "nonce", CHECKIN_TEXT, "what a document must repeat in channel_change_nonce", STATE, true};
constinit const checkin_row OVERRIDE_REASON = {
    "reason", CHECKIN_TEXT, "lonely, orphan_connect or dfs channel switch", STATE, true};
constexpr const checkin_row *OVERRIDE_ROWS[] = {&OVERRIDE_NONCE, &OVERRIDE_REASON};
constexpr checkin_level OVERRIDE = level("override", OVERRIDE_ROWS);

// scan_status, ap_list

constinit const checkin_row SCANNED_IFNAME = {"ifname", CHECKIN_TEXT, "the interface", STATE, true};
constinit const checkin_row SCANNED_RUNNING = {"running", CHECKIN_BOOL, "a scan runs on it", STATE,
                                               true};
constinit const checkin_row SCANNED_COMPLETE = {"complete", CHECKIN_BOOL,
                                                "its last scan came to its end", STATE, true};
constexpr const checkin_row *SCANNED_ROWS[] = {&SCANNED_IFNAME, &SCANNED_RUNNING,
                                               &SCANNED_COMPLETE};
constexpr checkin_level SCANNED = level("scanning interface", SCANNED_ROWS);

constinit const checkin_row SCAN_JOB = {"job_running", CHECKIN_BOOL, "the cloud's job ap_scan runs",
                                        STATE, true};
constinit const checkin_row SCAN_CHECKIN = {
    "checkin_after_scan", CHECKIN_BOOL, "a check-in follows when the scans are done", STATE, true};
constinit const checkin_row SCAN_INTERFACES = {
    "interfaces", CHECKIN_TABLES, "the interfaces that scan", STATE, true, &SCANNED};
constexpr const checkin_row *SCAN_STATUS_ROWS[] = {&SCAN_JOB, &SCAN_CHECKIN, &SCAN_INTERFACES};
constexpr checkin_level SCAN_STATUS = level("scan_status", SCAN_STATUS_ROWS);

// What a scan result holds is made by radio/scan_result.cpp.
constexpr checkin_row AP_BAND = {"band", CHECKIN_TEXT, "band it was heard in", SCAN, true};
constexpr checkin_row AP_CHANNEL_WIDTH = {"channel_width", CHECKIN_INT, "width of its channel, MHz",
                                          SCAN, true};
constexpr checkin_row AP_CHANNELS = {"channels", CHECKIN_INTS, "channels that it covers", SCAN,
                                     true};
constexpr checkin_row AP_SSID = {
    "ssid", CHECKIN_TEXT, "its network's name; bytes that are not text as \\xNN", SCAN, true};
constexpr checkin_row AP_BSSID = {"bssid", CHECKIN_TEXT, "its MAC address", SCAN, true};
constexpr checkin_row AP_ENCRYPTION = {"encryption", CHECKIN_TEXT, "WPA and a digit, WEP or NONE",
                                       SCAN, true};
constexpr checkin_row AP_SIGNAL = {"signal", CHECKIN_NUMBER, "received signal, hundredths of dBm",
                                   SCAN, true};
constexpr checkin_row AP_WIFI_MODE = {"wifi_mode", CHECKIN_TEXT, "802.11 modes that it offers",
                                      SCAN, true};
constexpr const checkin_row *AP_ROWS[] = {&AP_BAND,   &AP_CHANNEL_WIDTH, &AP_CHANNELS,
                                          &AP_SSID,   &AP_BSSID,         &AP_ENCRYPTION,
                                          &AP_SIGNAL, &AP_WIFI_MODE};
constexpr checkin_level AP = level("access point heard", AP_ROWS);

// the section

constinit const checkin_row CHECKIN_UPSTREAM = {
    "upstream", CHECKIN_TABLE, "the way to the internet", STATE, true, &UPSTREAM};
constinit const checkin_row CHECKIN_RADIOS = {"radios", CHECKIN_TABLES, "the radios",
                                              NL80211,  true,           &RADIO};
constinit const checkin_row CHECKIN_NEIGHBORS = {
    "neighbors", CHECKIN_TABLES, "mesh nodes that the radios hear", NL80211, false, &NEIGHBOR};
constinit const checkin_row CHECKIN_MESH = {"mesh", CHECKIN_TABLE, "the gateway of a repeater",
                                            BATCTL, false,         &MESH};
constinit const checkin_row CHECKIN_DFS = {"dfs", CHECKIN_TABLE, "radar", NL80211, true, &DFS};
constinit const checkin_row CHECKIN_DELAYED = {
    "delayed", CHECKIN_TABLE, "wireless settings that are held back", STATE, false, &DELAYED};
constinit const checkin_row CHECKIN_OVERRIDE = {
    "override", CHECKIN_TABLE, "a local radio override that blocks documents",
    STATE,      false,         &OVERRIDE};
constinit const checkin_row CHECKIN_POWER = {
    "power_negotiated", CHECKIN_BOOL,
    "false while the radios stay off until the power negotiation over LLDP is complete", STATE,
    true};
constinit const checkin_row CHECKIN_SCAN_STATUS = {
    "scan_status", CHECKIN_TABLE, "how scanning stands", STATE, true, &SCAN_STATUS};
constinit const checkin_row CHECKIN_AP_LIST = {
    "ap_list", CHECKIN_TABLES, "access points heard, the strongest first, each once",
    SCAN,      true,           &AP};
constinit const checkin_row CHECKIN_AP_LIST_OMITTED = {
    "ap_list_omitted", CHECKIN_INT, "weaker ones for which there was no room", SCAN, true};
constexpr const checkin_row *SECTION_ROWS[] = {
    &CHECKIN_UPSTREAM,    &CHECKIN_RADIOS,  &CHECKIN_NEIGHBORS,      &CHECKIN_MESH,
    &CHECKIN_DFS,         &CHECKIN_DELAYED, &CHECKIN_OVERRIDE,       &CHECKIN_POWER,
    &CHECKIN_SCAN_STATUS, &CHECKIN_AP_LIST, &CHECKIN_AP_LIST_OMITTED};
constinit const checkin_level CHECKIN_SECTION =
    level("wireless section of the check-in", SECTION_ROWS);
