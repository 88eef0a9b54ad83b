// The rows of the settings document, and the walk that stores values into the record.

#include "wifi/settings_table.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr enum blobmsg_type type_of(settings_kind kind)
{
    switch (kind) {
    case SETTINGS_BOOL:
    case SETTINGS_FLAG:
        return BLOBMSG_TYPE_INT8;
    case SETTINGS_INT:
        return BLOBMSG_TYPE_INT32;
    case SETTINGS_STRING:
        return BLOBMSG_TYPE_STRING;
    case SETTINGS_TABLE:
        return BLOBMSG_TYPE_TABLE;
    case SETTINGS_TABLES:
    case SETTINGS_INTS:
    case SETTINGS_STRINGS:
    case SETTINGS_PRESENCE:
        return BLOBMSG_TYPE_ARRAY;
    }
    return BLOBMSG_TYPE_UNSPEC;
}

template <size_t N>
constexpr std::array<blobmsg_policy, N> policy_of(const settings_field (&rows)[N])
{
    static_assert(N <= SETTINGS_FIELDS_MAX);
    std::array<blobmsg_policy, N> policy{};
    for (size_t i = 0; i < N; i++)
        policy[i] = {rows[i].key, type_of(rows[i].kind)};
    return policy;
}

// Rows are written with these: MEMBER binds a key to a member of the level's record, the others
// leave the value to the parser's code.
#define MEMBER(key, kind, record, member, rule, meaning)                                           \
    {                                                                                              \
        key, kind, offsetof(record, member), sizeof(record::member), nullptr, rule, meaning,       \
            false, false                                                                           \
    }
#define SECRET(key, record, member, meaning)                                                       \
    {                                                                                              \
        key, SETTINGS_STRING, offsetof(record, member), sizeof(record::member), nullptr, nullptr,  \
            meaning, false, true                                                                   \
    }
#define BY_CODE(key, kind, size, level, rule, meaning)                                             \
    {                                                                                              \
        key, kind, SETTINGS_NO_MEMBER, size, level, rule, meaning, false, false                    \
    }
#define REQUIRED(key, kind, rule, meaning)                                                         \
    {                                                                                              \
        key, kind, SETTINGS_NO_MEMBER, 0, nullptr, rule, meaning, true, false                      \
    }

constexpr settings_field TOP_ROWS[] = {
    MEMBER("enable", SETTINGS_BOOL, wifi_settings, enable, nullptr, "wireless as a whole"),
    BY_CODE("ap_scan", SETTINGS_BOOL, 0, nullptr, nullptr, "accepted and not read"),
    BY_CODE("mesh", SETTINGS_TABLE, 0, &SETTINGS_MESH, nullptr, "the mesh"),
    BY_CODE("regulatory", SETTINGS_TABLE, 0, &SETTINGS_REGULATORY, nullptr, "country and DFS"),
    BY_CODE("radios", SETTINGS_TABLES, WIFI_RADIOS_MAX, &SETTINGS_RADIO, nullptr, "the radios"),
    BY_CODE("ssids", SETTINGS_TABLES, WIFI_SSIDS, &SETTINGS_SSID, nullptr, "the networks"),
    MEMBER("delayed_settings", SETTINGS_BOOL, wifi_settings, delayed, nullptr,
           "hold changes that disturb the mesh back until the push is confirmed"),
    BY_CODE("neighbors", SETTINGS_TABLES, 512, &SETTINGS_NEIGHBOR, nullptr,
            "access points around, for 802.11k neighbour reports"),
    MEMBER("node_id", SETTINGS_INT, wifi_settings, node_id, nullptr,
           "number of the node in its network, from which its addresses follow; negative: none"),
    BY_CODE("lonely_friend", SETTINGS_BOOL, 0, nullptr, nullptr,
            "true: keep these radio settings against the cloud until it repeats the nonce"),
    BY_CODE("channel_change_nonce", SETTINGS_STRING, 0, nullptr, nullptr,
            "repeats the nonce of a local radio override and so ends it"),
    BY_CODE("save_orphans", SETTINGS_PRESENCE, 0, nullptr, nullptr,
            "being there turns the orphan network on"),
    BY_CODE("orphan_connect", SETTINGS_TABLE, 0, &SETTINGS_ORPHAN_CONNECT, nullptr,
            "join the network of a node that saves orphans"),
    BY_CODE("scanning_period", SETTINGS_INT, 0, nullptr, "minutes, -35791394 to 35791394",
            "time between scans"),
    MEMBER("presence_enable", SETTINGS_BOOL, wifi_settings, presence_enable, nullptr,
           "presence reporting"),
    MEMBER("presence_period", SETTINGS_INT, wifi_settings, presence_interval, nullptr,
           "time between presence reports"),
    BY_CODE("antenna_type", SETTINGS_STRING, 0, nullptr, "\"dipole\" or \"patch\"",
            "external antenna; any other text leaves the setting as it is"),
};

constexpr settings_field MESH_ROWS[] = {
    MEMBER("protocol", SETTINGS_STRING, wifi_settings, mesh_protocol, nullptr,
           "routing algorithm of batman-adv"),
    BY_CODE("batman", SETTINGS_TABLE, 0, &SETTINGS_BATMAN, nullptr, "batman-adv"),
    SECRET("key", wifi_settings, mesh_key, "key of the mesh"),
};

constexpr settings_field BATMAN_ROWS[] = {
    MEMBER("hop_penalty", SETTINGS_INT, wifi_settings, hop_penalty, nullptr, "hop penalty"),
    MEMBER("gw_stickiness", SETTINGS_INT, wifi_settings, gw_stickiness, nullptr,
           "how much better another gateway must be"),
    MEMBER("bridge_loop_avoidance", SETTINGS_BOOL, wifi_settings, bridge_loop_avoidance, nullptr,
           "bridge loop avoidance"),
};

constexpr settings_field REGULATORY_ROWS[] = {
    MEMBER("outdoor", SETTINGS_BOOL, wifi_settings, reg_outdoor, nullptr, "outdoor rules apply"),
    BY_CODE("country", SETTINGS_STRING, sizeof(wifi_settings::reg_country), nullptr,
            "exactly two characters", "country code"),
    BY_CODE("dfs", SETTINGS_TABLE, 0, &SETTINGS_DFS, nullptr, "channels shared with radar"),
};

constexpr settings_field DFS_ROWS[] = {
    MEMBER("enable", SETTINGS_BOOL, wifi_settings, dfs_enable, nullptr, "DFS channels allowed"),
    BY_CODE("channels", SETTINGS_INTS, WIFI_DFS_CHANNELS_MAX, nullptr, nullptr,
            "allowed DFS channels; what is not a number is passed over"),
};

constexpr settings_field RADIO_ROWS[] = {
    MEMBER("enable", SETTINGS_FLAG, wifi_radio_settings, enable, nullptr, "the radio is on"),
    REQUIRED("band", SETTINGS_STRING, "a band of the platform's radios, or \"scanning\"",
             "which radio this is; an element for the scanning radio is passed over"),
    MEMBER("channel", SETTINGS_INT, wifi_radio_settings, channel,
           "1 to 14, even 36 to 64, even 100 to 144, odd 149 to 161, 165, 169 or 173", "channel"),
    MEMBER("mode", SETTINGS_STRING, wifi_radio_settings, htmode, nullptr,
           "HT mode, for example \"VHT80\""),
    MEMBER("txpower", SETTINGS_INT, wifi_radio_settings, txpower, nullptr, "transmit power in dBm"),
    MEMBER("rtscts", SETTINGS_INT, wifi_radio_settings, rtscts, nullptr,
           "RTS/CTS threshold in bytes"),
    MEMBER("disable_lower_rates", SETTINGS_INT, wifi_radio_settings, disable_lower_rates, nullptr,
           "1: from 24 Mbit/s, 2: from 6 Mbit/s, else all rates"),
    MEMBER("mesh_enable", SETTINGS_BOOL, wifi_radio_settings, mesh_enable, nullptr,
           "the radio carries the mesh"),
};

constexpr settings_field SSID_ROWS[] = {
    REQUIRED("index", SETTINGS_INT, "1 to 4", "which slot this is"),
    MEMBER("enable", SETTINGS_BOOL, wifi_ssid_settings, enable, nullptr, "the network is on"),
    MEMBER("ssid", SETTINGS_STRING, wifi_ssid_settings, ssid, nullptr, "name of the network"),
    SECRET("key", wifi_ssid_settings, key, "passphrase"),
    MEMBER("enc", SETTINGS_STRING, wifi_ssid_settings, enc, nullptr,
           "encryption, for example \"psk2\" or \"wpa3\""),
    MEMBER("radius_server", SETTINGS_STRING, wifi_ssid_settings, radius_server, nullptr,
           "authentication server"),
    MEMBER("radius_port", SETTINGS_INT, wifi_ssid_settings, radius_port, nullptr,
           "UDP port of the authentication server"),
    SECRET("radius_key", wifi_ssid_settings, radius_key, "secret of the authentication server"),
    MEMBER("vlan_tag", SETTINGS_INT, wifi_ssid_settings, vlan_tag, nullptr,
           "VLAN id, 1 to 4095; anything else: no VLAN"),
    MEMBER("bridge_to_lan", SETTINGS_BOOL, wifi_ssid_settings, bridge_to_lan, nullptr,
           "clients are bridged to the wired LAN"),
    MEMBER("rebind_protection", SETTINGS_BOOL, wifi_ssid_settings, rebind_protection, nullptr,
           "refuse private addresses in DNS answers"),
    MEMBER("roaming_domain", SETTINGS_STRING, wifi_ssid_settings, roaming_domain, nullptr,
           "802.11r mobility domain, 4 hex digits"),
    SECRET("roaming_key", wifi_ssid_settings, roaming_key,
           "key between the nodes of the mobility domain, 64 hex digits"),
    MEMBER("radius_acct_server", SETTINGS_STRING, wifi_ssid_settings, radius_acct_server, nullptr,
           "accounting server"),
    SECRET("radius_acct_key", wifi_ssid_settings, radius_acct_key,
           "secret of the accounting server"),
    MEMBER("radius_acct_port", SETTINGS_INT, wifi_ssid_settings, radius_acct_port, nullptr,
           "UDP port of the accounting server"),
    MEMBER("neighbor_reports", SETTINGS_BOOL, wifi_ssid_settings, neigh_report, nullptr,
           "802.11k neighbour reports"),
    MEMBER("anyip", SETTINGS_BOOL, wifi_ssid_settings, anyip, nullptr,
           "serve clients with any fixed address"),
    MEMBER("lan_block", SETTINGS_BOOL, wifi_ssid_settings, lan_block, nullptr,
           "clients do not reach the wired LAN"),
    MEMBER("client_isolation", SETTINGS_BOOL, wifi_ssid_settings, client_isolate, nullptr,
           "clients do not reach one another"),
    MEMBER("smtp_redirect", SETTINGS_STRING, wifi_ssid_settings, smtp_redir, nullptr,
           "address that outgoing mail is redirected to"),
    BY_CODE("dns_servers", SETTINGS_STRINGS, WIFI_DNS_SERVERS_MAX, nullptr, nullptr,
            "name servers of the clients; what is not a text is passed over"),
    BY_CODE("bands", SETTINGS_TABLES, WIFI_BANDS, &SETTINGS_BAND, nullptr,
            "name and use of the network per band"),
    BY_CODE("access_control_list", SETTINGS_STRINGS, WIFI_ACL_MAX, nullptr, "MAC addresses",
            "the only clients admitted; what is not a MAC address is passed over"),
    MEMBER("hidden", SETTINGS_BOOL, wifi_ssid_settings, hidden, nullptr,
           "beacons do not tell the name"),
    BY_CODE("dhcp", SETTINGS_TABLE, 0, &SETTINGS_DHCP, nullptr, "own addresses for the clients"),
    MEMBER("dns_intercept", SETTINGS_BOOL, wifi_ssid_settings, dns_intercept, nullptr,
           "answer the clients' DNS queries here, whatever server they ask"),
    MEMBER("band_steering", SETTINGS_BOOL, wifi_ssid_settings, band_steering, nullptr,
           "steer clients to 5 GHz"),
    MEMBER("roaming_80211v", SETTINGS_BOOL, wifi_ssid_settings, roaming_80211v, nullptr,
           "802.11v transition management"),
    MEMBER("safecheck_enable", SETTINGS_BOOL, wifi_ssid_settings, safecheck_enable, nullptr,
           "report admitted and denied clients"),
};

constexpr settings_field BAND_ROWS[] = {
    REQUIRED("band", SETTINGS_STRING, "a band of the platform's radios", "which band this is"),
    MEMBER("enable", SETTINGS_FLAG, wifi_band_settings, enable, nullptr,
           "the network is on this band"),
    MEMBER("ssid", SETTINGS_STRING, wifi_band_settings, ssid, nullptr,
           "name of the network on this band"),
};

constexpr settings_field DHCP_ROWS[] = {
    REQUIRED("enable", SETTINGS_BOOL, nullptr,
             "own addresses; false: clients get the node's, and the relay is forgotten"),
    MEMBER("gateway_ip", SETTINGS_STRING, wifi_dhcp_settings, gateway_ip, nullptr,
           "address of the node in the network"),
    MEMBER("netmask", SETTINGS_STRING, wifi_dhcp_settings, netmask, nullptr, "netmask"),
    MEMBER("relay", SETTINGS_STRING, wifi_dhcp_settings, relay, nullptr,
           "DHCP server that requests are relayed to"),
    MEMBER("start", SETTINGS_INT, wifi_dhcp_settings, start, nullptr,
           "first address given out, counted from the network's"),
    MEMBER("num_leases", SETTINGS_INT, wifi_dhcp_settings, num_leases, nullptr,
           "addresses given out"),
    MEMBER("lease_length", SETTINGS_STRING, wifi_dhcp_settings, lease_len, nullptr,
           "how long a lease lasts, for example \"12h\""),
};

constexpr settings_field ORPHAN_CONNECT_ROWS[] = {
    REQUIRED("radio", SETTINGS_STRING, "a band of the platform's radios", "radio to connect with"),
    REQUIRED("bssid", SETTINGS_STRING, nullptr, "BSSID to connect to"),
};

constexpr settings_field NEIGHBOR_ROWS[] = {
    REQUIRED("bssid", SETTINGS_STRING, "a MAC address", "BSSID of the access point"),
    REQUIRED("ssid_index", SETTINGS_INT, "1 to 4", "slot of the network it offers"),
    REQUIRED("nr", SETTINGS_STRING, "2 to 510 hex digits, an even number",
             "neighbour report element"),
};

#undef MEMBER
#undef SECRET
#undef BY_CODE
#undef REQUIRED

constexpr auto TOP_POLICY = policy_of(TOP_ROWS);
constexpr auto MESH_POLICY = policy_of(MESH_ROWS);
constexpr auto BATMAN_POLICY = policy_of(BATMAN_ROWS);
constexpr auto REGULATORY_POLICY = policy_of(REGULATORY_ROWS);
constexpr auto DFS_POLICY = policy_of(DFS_ROWS);
constexpr auto RADIO_POLICY = policy_of(RADIO_ROWS);
constexpr auto SSID_POLICY = policy_of(SSID_ROWS);
constexpr auto BAND_POLICY = policy_of(BAND_ROWS);
constexpr auto DHCP_POLICY = policy_of(DHCP_ROWS);
constexpr auto ORPHAN_CONNECT_POLICY = policy_of(ORPHAN_CONNECT_ROWS);
constexpr auto NEIGHBOR_POLICY = policy_of(NEIGHBOR_ROWS);

void store_string(char *member, uint32_t size, const char *text)
{
    snprintf(member, size, "%s", text);
}

void store_value(const settings_field &field, blob_attr *value, char *member)
{
    switch (field.kind) {
    case SETTINGS_BOOL: {
        const bool on = blobmsg_get_u8(value) != 0;
        memcpy(member, &on, sizeof(on));
        return;
    }
    case SETTINGS_FLAG: {
        const uint32_t on = blobmsg_get_u8(value) != 0;
        memcpy(member, &on, sizeof(on));
        return;
    }
    case SETTINGS_INT: {
        const uint32_t number = blobmsg_get_u32(value);
        memcpy(member, &number, sizeof(number));
        return;
    }
    case SETTINGS_STRING:
        store_string(member, field.size, blobmsg_get_string(value));
        return;
    case SETTINGS_TABLE:
    case SETTINGS_TABLES:
    case SETTINGS_INTS:
    case SETTINGS_STRINGS:
    case SETTINGS_PRESENCE:
        return; // never bound to a member
    }
}

} // namespace

constinit const settings_level SETTINGS_TOP = {"settings", TOP_ROWS, TOP_POLICY};
constinit const settings_level SETTINGS_MESH = {"mesh", MESH_ROWS, MESH_POLICY};
constinit const settings_level SETTINGS_BATMAN = {"batman", BATMAN_ROWS, BATMAN_POLICY};
constinit const settings_level SETTINGS_REGULATORY = {"regulatory", REGULATORY_ROWS,
                                                      REGULATORY_POLICY};
constinit const settings_level SETTINGS_DFS = {"dfs", DFS_ROWS, DFS_POLICY};
constinit const settings_level SETTINGS_RADIO = {"radios element", RADIO_ROWS, RADIO_POLICY};
constinit const settings_level SETTINGS_SSID = {"ssids element", SSID_ROWS, SSID_POLICY};
constinit const settings_level SETTINGS_BAND = {"bands element", BAND_ROWS, BAND_POLICY};
constinit const settings_level SETTINGS_DHCP = {"dhcp", DHCP_ROWS, DHCP_POLICY};
constinit const settings_level SETTINGS_ORPHAN_CONNECT = {"orphan_connect", ORPHAN_CONNECT_ROWS,
                                                          ORPHAN_CONNECT_POLICY};
constinit const settings_level SETTINGS_NEIGHBOR = {"neighbors element", NEIGHBOR_ROWS,
                                                    NEIGHBOR_POLICY};

blob_attr *settings_values::get(const char *key) const
{
    for (size_t i = 0; i < level->fields.size(); i++)
        if (strcmp(level->fields[i].key, key) == 0)
            return attrs[i];
    abort(); // a key that is no row is a slip in the code
}

enum blobmsg_type settings_blobmsg_type(settings_kind kind)
{
    return type_of(kind);
}

bool settings_parse_level(const settings_level &level, blob_attr *table, settings_values *out)
{
    out->level = &level;
    // libubox refuses an empty table; here it is one that changes nothing.
    return blobmsg_parse(level.policy.data(), static_cast<int>(level.policy.size()),
                         out->attrs.data(), blobmsg_data(table),
                         static_cast<unsigned>(blobmsg_len(table))) == 0 ||
           blobmsg_len(table) == 0;
}

void settings_store(const settings_values &values, void *record)
{
    for (size_t i = 0; i < values.level->fields.size(); i++) {
        const settings_field &field = values.level->fields[i];
        if (values.attrs[i] && field.offset != SETTINGS_NO_MEMBER)
            store_value(field, values.attrs[i], static_cast<char *>(record) + field.offset);
    }
}
