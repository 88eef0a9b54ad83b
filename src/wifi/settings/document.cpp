// The rows of the wireless settings document, level by level, each in its policy's order.

#include "wifi/settings/document.h"

#include <cstring>

#include "platform/zu/mac.h"
#include "wifi/settings/fields.h"
#include "wifi/wifi_internal.h"

/// Binds a key to the row of a setting; a key of another name gives that as well. What is not bound
/// is taken by the parser's code.
static consteval settings_field bound(std::span<const wifi_field> rows, const char *key,
                                      const char *name, settings_field field)
{
    const wifi_field *row = wifi_find_field(rows, name); // null does not compile
    field.key = key;
    field.kind = row->kind;
    field.offset = row->offset;
    field.size = row->size;
    field.secret = row->secret;
    return field;
}

static consteval settings_field bound(std::span<const wifi_field> rows, const char *key,
                                      settings_field field)
{
    return bound(rows, key, key, field);
}

constexpr uint8_t CHANNELS[] = {
    1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  36,  38,
    40,  42,  44,  46,  48,  50,  52,  54,  56,  58,  60,  62,  64,  100, 102, 104,
    106, 108, 110, 112, 114, 116, 118, 120, 122, 124, 126, 128, 130, 132, 134, 136,
    138, 140, 142, 144, 149, 151, 153, 155, 157, 159, 161, 165, 169, 173,
};
constexpr const char *ANTENNAS[] = {"dipole", "patch"};
constexpr char MAC_PATTERN[] = "^[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}$";
constexpr char MAC_RULE[] = "a MAC address, aa:bb:cc:dd:ee:ff";

constexpr size_t REPORT_HEX_MAX = 510; // an element's body has at most 255 bytes

static bool is_country(const char *text)
{
    return strlen(text) == sizeof(wifi_settings::reg_country) - 1;
}

bool str_is_mac_addr(const char *text)
{
    zu_mac unused;
    return zu_mac_read(text, &unused);
}

/// Hostapd takes no address that is followed by anything.
static bool is_neighbor_bssid(const char *text)
{
    return str_is_mac_addr(text) && strlen(text) < sizeof("02:00:00:00:00:00");
}

static bool is_report(const char *text)
{
    const size_t length = strlen(text);
    return length > 0 && length % 2 == 0 && length <= REPORT_HEX_MAX &&
           strspn(text, "0123456789abcdefABCDEF") == length;
}

constexpr settings_limits CHANNEL = {
    .numbers = CHANNELS,
    .rule = "1 to 14, even 36 to 64, even 100 to 144, odd 149 to 161, 165, 169 or 173"};
constexpr settings_limits SLOT = {.min = 1, .max = WIFI_SSIDS};
constexpr settings_limits MINUTES = {.min = INT32_MIN / 60, .max = INT32_MAX / 60};
constexpr settings_limits COUNTRY = {
    .takes = is_country, .pattern = "^[ -~]{2}$", .rule = "exactly two characters"};
constexpr settings_limits ANTENNA = {.words = ANTENNAS};
constexpr settings_limits DFS_CHANNELS = {.items_max = WIFI_DFS_CHANNELS_MAX};
constexpr settings_limits DNS_SERVERS = {
    .text_min = 1, .text_max = 127, .items_max = WIFI_DNS_SERVERS_MAX};
constexpr settings_limits ACL = {
    .takes = str_is_mac_addr, .pattern = MAC_PATTERN, .items_max = WIFI_ACL_MAX, .rule = MAC_RULE};
constexpr settings_limits RADIO_IN_USE = {
    .choice = SETTINGS_RADIO_IN_USE,
    .rule = "the band of one of the platform's first three radios, or \"scanning\""};
constexpr settings_limits SSID_BAND = {
    .choice = SETTINGS_SSID_BAND,
    .rule = "\"2.4GHz\", \"5GHz_low\", \"5GHz_high\", \"5GHz\" or \"scanning\", if the platform "
            "has a radio for it"};
constexpr settings_limits ANY_RADIO = {.choice = SETTINGS_ANY_RADIO,
                                       .rule = "the band of one of the platform's radios"};
constexpr settings_limits ORPHAN_BSSID = {.text_max =
                                              sizeof(wifi_settings::orphan_connect_bssid) - 1};
constexpr settings_limits NEIGHBORS = {.items_max = SETTINGS_NEIGHBORS_MAX};
constexpr settings_limits NEIGHBOR_BSSID = {
    .takes = is_neighbor_bssid, .pattern = MAC_PATTERN, .rule = MAC_RULE};
constexpr settings_limits NEIGHBOR_REPORT = {.takes = is_report,
                                             .pattern = "^([0-9A-Fa-f]{2}){1,255}$",
                                             .rule = "2 to 510 hex digits, an even number"};

constexpr settings_field TOP_ROWS[] = {
    bound(NODE_FIELDS, "enable", {.meaning = "wireless as a whole"}),
    {.key = "ap_scan",
     .kind = SETTINGS_BOOL,
     .meaning = "accepted and not read: every document turns it off",
     .absent = "off",
     .never_read = true},
    {.key = "mesh",
     .kind = SETTINGS_TABLE,
     .level = &SETTINGS_MESH,
     .meaning = "the mesh",
     .error = "Failed to parse mesh data"},
    {.key = "regulatory",
     .kind = SETTINGS_TABLE,
     .level = &SETTINGS_REGULATORY,
     .meaning = "country and DFS",
     .error = "Failed to parse regulatory data"},
    {.key = "radios",
     .kind = SETTINGS_TABLES,
     .level = &SETTINGS_RADIO,
     .meaning = "the radios",
     .error = "Failed to parse radios data"},
    {.key = "ssids",
     .kind = SETTINGS_TABLES,
     .level = &SETTINGS_SSID,
     .meaning = "the networks",
     .error = "Failed to parse ssids data"},
    bound(NODE_FIELDS, "delayed_settings", "delayed",
          {.meaning = "hold changes that disturb the mesh back until the push is confirmed"}),
    {.key = "neighbors",
     .kind = SETTINGS_TABLES,
     .level = &SETTINGS_NEIGHBOR,
     .limits = &NEIGHBORS,
     .meaning = "access points around, for 802.11k neighbour reports; replaces the whole list",
     .error = "Failed to parse neighbor list"},
    bound(NODE_FIELDS, "node_id",
          {.meaning = "number of the node in its cloud network, from which its addresses follow; "
                      "negative: none"}),
    {.key = "lonely_friend",
     .kind = SETTINGS_BOOL,
     .meaning = "true: these radio settings hold until a document repeats the nonce shown as "
                "`radio_override`; false: take the document although such a hold is in force",
     .absent = "a hold in force refuses the document",
     .error = "Local radio settings override, ignoring configuration"},
    {.key = "channel_change_nonce",
     .kind = SETTINGS_STRING,
     .meaning = "repeats the nonce of a hold and so ends it; any other text does nothing",
     .absent = "a hold in force refuses the document",
     .error = "Local radio settings override, ignoring configuration"},
    {.key = "save_orphans",
     .kind = SETTINGS_PRESENCE,
     .meaning = "being there turns the orphan network on; its elements are not read",
     .absent = "off"},
    {.key = "orphan_connect",
     .kind = SETTINGS_TABLE,
     .level = &SETTINGS_ORPHAN_CONNECT,
     .meaning = "join the network of a node that saves orphans, and hold the radio settings; "
                "not read beside `lonely_friend`"},
    {.key = "scanning_period",
     .kind = SETTINGS_INT,
     .limits = &MINUTES,
     .meaning = "minutes between scans; more wraps around"},
    bound(NODE_FIELDS, "presence_enable", {.meaning = "presence reporting"}),
    bound(NODE_FIELDS, "presence_period", "presence_interval",
          {.meaning = "time between presence reports"}),
    {.key = "antenna_type",
     .kind = SETTINGS_STRING,
     .limits = &ANTENNA,
     .meaning = "external antenna; any other text is passed over"},
};

constexpr settings_field MESH_ROWS[] = {
    bound(NODE_FIELDS, "protocol", "mesh_protocol", {.meaning = "routing algorithm of batman-adv"}),
    {.key = "batman",
     .kind = SETTINGS_TABLE,
     .level = &SETTINGS_BATMAN,
     .meaning = "batman-adv",
     .error = "Unable to parse batman settings"},
    bound(NODE_FIELDS, "key", "mesh_key", {.meaning = "key of the mesh"}),
};

constexpr settings_field BATMAN_ROWS[] = {
    bound(NODE_FIELDS, "hop_penalty", {.meaning = "hop penalty"}),
    bound(NODE_FIELDS, "gw_stickiness", {.meaning = "how much better another gateway must be"}),
    bound(NODE_FIELDS, "bridge_loop_avoidance", {.meaning = "bridge loop avoidance"}),
};

constexpr settings_field REGULATORY_ROWS[] = {
    bound(NODE_FIELDS, "outdoor", "reg_outdoor", {.meaning = "outdoor rules apply"}),
    {.key = "country",
     .kind = SETTINGS_STRING,
     .limits = &COUNTRY,
     .meaning = "country code",
     .error = "Got incorrect length for country '%s'"},
    {.key = "dfs",
     .kind = SETTINGS_TABLE,
     .level = &SETTINGS_DFS,
     .meaning = "channels shared with radar",
     .error = "Failed to parse DFS"},
};

constexpr settings_field DFS_ROWS[] = {
    bound(NODE_FIELDS, "enable", "dfs_enable", {.meaning = "DFS channels allowed"}),
    {.key = "channels",
     .kind = SETTINGS_INTS,
     .limits = &DFS_CHANNELS,
     .meaning = "allowed DFS channels, replacing the list; elements that are no integers and "
                "what is too much are passed over"},
};

constexpr settings_field RADIO_ROWS[] = {
    bound(RADIO_FIELDS, "enable", {.meaning = "the radio is on"}),
    {.key = "band",
     .kind = SETTINGS_STRING,
     .limits = &RADIO_IN_USE,
     .meaning = "which radio this is; an element for \"scanning\" is passed over",
     .error = "Failed to find 'band' key in msg; invalid radio index: %d",
     .required = true},
    bound(RADIO_FIELDS, "channel",
          {.limits = &CHANNEL,
           .meaning = "channel; a radio that has none yet needs it",
           .error = "invalid channel: %d"}),
    bound(RADIO_FIELDS, "mode", "htmode", {.meaning = "HT mode, for example \"VHT80\""}),
    bound(RADIO_FIELDS, "txpower", {.meaning = "transmit power in dBm"}),
    bound(RADIO_FIELDS, "rtscts", {.meaning = "RTS/CTS threshold in bytes"}),
    bound(RADIO_FIELDS, "disable_lower_rates",
          {.meaning = "1: rates from 24 Mbit/s, 2: from 6 Mbit/s, else all"}),
    bound(RADIO_FIELDS, "mesh_enable", {.meaning = "the radio carries the mesh"}),
};

constexpr settings_field SSID_ROWS[] = {
    {.key = "index",
     .kind = SETTINGS_INT,
     .limits = &SLOT,
     .meaning = "which of the four networks this is; the error names it less one",
     .error = "Failed to find 'index' key in msg; Invalid ssid index: %d",
     .required = true},
    bound(SSID_FIELDS, "enable", {.meaning = "the network is on"}),
    bound(SSID_FIELDS, "ssid", {.meaning = "name of the network"}),
    bound(SSID_FIELDS, "key", {.meaning = "passphrase"}),
    bound(SSID_FIELDS, "enc", {.meaning = "encryption, for example \"psk2\" or \"wpa3\""}),
    bound(SSID_FIELDS, "radius_server", {.meaning = "authentication server"}),
    bound(SSID_FIELDS, "radius_port", {.meaning = "UDP port of the authentication server"}),
    bound(SSID_FIELDS, "radius_key", {.meaning = "secret shared with the authentication server"}),
    bound(SSID_FIELDS, "vlan_tag", {.meaning = "VLAN id, 1 to 4095; anything else: no VLAN"}),
    bound(SSID_FIELDS, "bridge_to_lan", {.meaning = "clients are bridged to the wired LAN"}),
    bound(SSID_FIELDS, "rebind_protection", {.meaning = "refuse private addresses in DNS answers"}),
    bound(SSID_FIELDS, "roaming_domain",
          {.meaning = "802.11r mobility domain, 4 hex digits; empty: no fast transition"}),
    bound(SSID_FIELDS, "roaming_key",
          {.meaning = "key between the nodes of the mobility domain, 64 hex digits"}),
    bound(SSID_FIELDS, "radius_acct_server", {.meaning = "accounting server"}),
    bound(SSID_FIELDS, "radius_acct_key", {.meaning = "secret shared with the accounting server"}),
    bound(SSID_FIELDS, "radius_acct_port", {.meaning = "UDP port of the accounting server"}),
    bound(SSID_FIELDS, "neighbor_reports", "neigh_report",
          {.meaning = "802.11k neighbour reports"}),
    bound(SSID_FIELDS, "anyip", {.meaning = "serve clients with any fixed address"}),
    bound(SSID_FIELDS, "lan_block", {.meaning = "clients do not reach the wired LAN"}),
    bound(SSID_FIELDS, "client_isolation", "client_isolate",
          {.meaning = "clients do not reach one another"}),
    bound(SSID_FIELDS, "smtp_redirect", "smtp_redir",
          {.meaning = "IPv4 address that outgoing mail is redirected to; empty: none"}),
    {.key = "dns_servers",
     .kind = SETTINGS_STRINGS,
     .limits = &DNS_SERVERS,
     .meaning = "name servers of the clients, replacing the list up to the first empty one; "
                "elements that are no texts and what is too much are passed over"},
    {.key = "bands",
     .kind = SETTINGS_TABLES,
     .level = &SETTINGS_BAND,
     .meaning = "name and use of the network per band",
     .error = "Failed to parse band, ssid_idx = %d"},
    {.key = "access_control_list",
     .kind = SETTINGS_STRINGS,
     .limits = &ACL,
     .meaning = "the only clients admitted, replacing the list; elements that are no MAC "
                "addresses (NOTICE \"Got incorrect format for acl '%s'\") and what is too "
                "much are passed over"},
    bound(SSID_FIELDS, "hidden", {.meaning = "beacons do not tell the name"}),
    {.key = "dhcp",
     .kind = SETTINGS_TABLE,
     .level = &SETTINGS_DHCP,
     .meaning = "addresses of the network's own for its clients",
     .error = "Failed to parse DHCP settings, ssid_idx = %d"},
    bound(SSID_FIELDS, "dns_intercept",
          {.meaning = "answer the clients' DNS queries here, whatever server they ask"}),
    bound(SSID_FIELDS, "band_steering", {.meaning = "steer clients to 5 GHz"}),
    bound(SSID_FIELDS, "roaming_80211v", {.meaning = "802.11v transition management"}),
    bound(SSID_FIELDS, "safecheck_enable", {.meaning = "report admitted and denied clients"}),
};

constexpr settings_field BAND_ROWS[] = {
    {.key = "band",
     .kind = SETTINGS_STRING,
     .limits = &SSID_BAND,
     .meaning = "which band this is",
     .error = "bands array object doesn't contain a 'band' member; Invalid band: %d:%s",
     .required = true},
    bound(BAND_FIELDS, "enable", "band%d_enable", {.meaning = "the network is on this band"}),
    bound(BAND_FIELDS, "ssid", "band%d_ssid",
          {.meaning = "name of the network on this band; empty: its own name"}),
};

constexpr settings_field DHCP_ROWS[] = {
    {.key = "enable",
     .kind = SETTINGS_BOOL,
     .meaning = "addresses of its own; false: the node's, the relay is forgotten and the rest "
                "of the table passed over",
     .error = "Unable to get DHCP enable",
     .required = true},
    bound(DHCP_FIELDS, "gateway_ip", "dhcp_gateway",
          {.meaning = "IPv4 address of the node in the network; any other text, here as in the "
                      "next two, is taken and not written"}),
    bound(DHCP_FIELDS, "netmask", "dhcp_netmask",
          {.meaning = "IPv4 netmask, for example \"255.255.252.0\""}),
    bound(DHCP_FIELDS, "relay", "dhcp_relay",
          {.meaning = "IPv4 address of the DHCP server that requests are relayed to; empty: none"}),
    bound(DHCP_FIELDS, "start", "dhcp_start",
          {.meaning = "first address given out, counted from the network's"}),
    bound(DHCP_FIELDS, "num_leases", "dhcp_leases", {.meaning = "addresses given out"}),
    bound(DHCP_FIELDS, "lease_length", "dhcp_lease_length",
          {.meaning = "how long a lease lasts, for example \"12h\""}),
};

constexpr settings_field ORPHAN_CONNECT_ROWS[] = {
    {.key = "radio",
     .kind = SETTINGS_STRING,
     .limits = &ANY_RADIO,
     .meaning = "radio to connect with",
     .error = "No radio for orphan_connect; Invalid radio for orphan_connect",
     .required = true},
    {.key = "bssid",
     .kind = SETTINGS_STRING,
     .limits = &ORPHAN_BSSID,
     .meaning = "BSSID to connect to",
     .error = "No bssid for orphan_connect",
     .required = true},
};

constexpr settings_field NEIGHBOR_ROWS[] = {
    {.key = "bssid",
     .kind = SETTINGS_STRING,
     .limits = &NEIGHBOR_BSSID,
     .meaning = "BSSID of the access point",
     .error = "Failed to find 'bssid' key in neighbor list element; Got incorrect format for "
              "neighbor bssid '%s'",
     .required = true},
    {.key = "ssid_index",
     .kind = SETTINGS_INT,
     .limits = &SLOT,
     .meaning = "which of the four networks it offers",
     .error = "Failed to find 'ssid_index' key in neighbor list element; Invalid ssid index "
              "or report of neighbor '%s'",
     .required = true},
    {.key = "nr",
     .kind = SETTINGS_STRING,
     .limits = &NEIGHBOR_REPORT,
     .meaning = "neighbour report element",
     .error = "Failed to find 'nr' key in neighbor list element; Invalid ssid index or report "
              "of neighbor '%s'",
     .required = true},
};

constexpr auto TOP_POLICY = settings_policy(TOP_ROWS);
constexpr auto MESH_POLICY = settings_policy(MESH_ROWS);
constexpr auto BATMAN_POLICY = settings_policy(BATMAN_ROWS);
constexpr auto REGULATORY_POLICY = settings_policy(REGULATORY_ROWS);
constexpr auto DFS_POLICY = settings_policy(DFS_ROWS);
constexpr auto RADIO_POLICY = settings_policy(RADIO_ROWS);
constexpr auto SSID_POLICY = settings_policy(SSID_ROWS);
constexpr auto BAND_POLICY = settings_policy(BAND_ROWS);
constexpr auto DHCP_POLICY = settings_policy(DHCP_ROWS);
constexpr auto ORPHAN_CONNECT_POLICY = settings_policy(ORPHAN_CONNECT_ROWS);
constexpr auto NEIGHBOR_POLICY = settings_policy(NEIGHBOR_ROWS);

constexpr char BROKEN[] = "Unable to parse arguments";

constinit const settings_level SETTINGS_TOP = {"params", BROKEN, TOP_ROWS, TOP_POLICY};
constinit const settings_level SETTINGS_MESH = {"mesh", "Unable to parse mesh arguments", MESH_ROWS,
                                                MESH_POLICY};
constinit const settings_level SETTINGS_BATMAN = {"batman", "Unable to parse batman arguments",
                                                  BATMAN_ROWS, BATMAN_POLICY};
constinit const settings_level SETTINGS_REGULATORY = {"regulatory", BROKEN, REGULATORY_ROWS,
                                                      REGULATORY_POLICY};
constinit const settings_level SETTINGS_DFS = {"dfs", BROKEN, DFS_ROWS, DFS_POLICY};
constinit const settings_level SETTINGS_RADIO = {"radios element", BROKEN, RADIO_ROWS,
                                                 RADIO_POLICY};
constinit const settings_level SETTINGS_SSID = {"ssids element", BROKEN, SSID_ROWS, SSID_POLICY};
constinit const settings_level SETTINGS_BAND = {"bands element", BROKEN, BAND_ROWS, BAND_POLICY};
constinit const settings_level SETTINGS_DHCP = {"dhcp", BROKEN, DHCP_ROWS, DHCP_POLICY};
constinit const settings_level SETTINGS_ORPHAN_CONNECT = {
    "orphan_connect", "Unable to parse orphan_connect arguments", ORPHAN_CONNECT_ROWS,
    ORPHAN_CONNECT_POLICY};
constinit const settings_level SETTINGS_NEIGHBOR = {
    "neighbors element", "Neighbor list element is not a table", NEIGHBOR_ROWS, NEIGHBOR_POLICY};
