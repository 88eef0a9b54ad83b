// The settings of the record, one row each: the member, the option that says it in the
// configuration, and who writes that. The settings document binds its keys to these rows, the state
// dump shows them, the writer and the reload walk them; so a new setting is a row here and one in
// document.cpp.
//
// The rows stand in the order in which options come into a new section. Some orders and names are
// older than the rows: the keys of the document, and the order of the dump (dump.cpp).
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/fw_core/settings_rows.h"
#include "wifi/settings/record.h"

/// Which numbers the name of an option holds.
enum scope : uint8_t {
    NODE,      ///< none
    RADIO,     ///< the radio's; what all radios share is read at the first that does not scan
    DFS_RADIO, ///< the radio's, where radars are; what they share is read at the first of them
    SSID,      ///< the SSID's, from 1
    AP,        ///< the radio's and the SSID's; read at the first radio that does not scan
};

/// When a setting is written.
enum field_stage : uint8_t {
    DIRECT,  ///< with every push
    STAGED,  ///< with the radio stage, which may be held back
    FOREIGN, ///< never: it is another service's to say
};

/// Who writes an option, and whether it is read back.
enum option_use : uint8_t {
    PLAIN,   ///< written as the member is, read back
    DERIVED, ///< written by code, as more than this setting decides; read back
    ALSO,    ///< written as the member is; another row's option is read back
};

struct wifi_field {
    const char *name; ///< in the sections where the node keeps what no option says
    settings_kind kind;
    uint32_t offset;              ///< in the record's part that the table describes
    uint32_t size;                ///< of the member, or of each of a list's texts, in bytes
    uint32_t slots;               ///< most a list holds; else 1
    scope where = NODE;           ///< of the option
    const char *option = nullptr; ///< with a "%d" for each number; null: none says it
    field_stage stage = DIRECT;
    option_use use = PLAIN;
    const char *prefix = "";    ///< before the value in the option
    int absent = 0;             ///< what a number is when there is no option
    bool while_enabled = false; ///< the option says it only while the part's `enable` is set
    bool secret = false;        ///< never in a log; in the state dump only when asked for
    bool dumped_openly = false; ///< there although it is secret
    bool hidden = false;        ///< never in the state dump
};

namespace fields_detail {

template <typename Member>
consteval settings_kind kind_of()
{
    if constexpr (std::rank_v<Member> == 2)
        return SETTINGS_STRINGS;
    else if constexpr (std::is_same_v<std::remove_extent_t<Member>, char>)
        return SETTINGS_STRING;
    else if constexpr (std::is_array_v<Member>)
        return SETTINGS_INTS;
    else if constexpr (std::is_same_v<Member, bool>)
        return SETTINGS_BOOL;
    else if constexpr (std::is_same_v<Member, uint32_t>)
        return SETTINGS_FLAG;
    else
        return SETTINGS_INT;
}

template <typename Member>
inline constexpr bool is_list = kind_of<Member>() == SETTINGS_STRINGS
                                || kind_of<Member>() == SETTINGS_INTS;
template <typename Member>
inline constexpr uint32_t slots_of = is_list<Member> ? std::extent_v<Member> : 1;

} // namespace fields_detail

#define MEMBER(record, member)                                                                     \
    .offset = offsetof(record, member),                                                            \
    .size = sizeof(record::member) / fields_detail::slots_of<decltype(record::member)>,            \
    .slots = fields_detail::slots_of<decltype(record::member)>
#define KIND(record, member) .kind = fields_detail::kind_of<decltype(record::member)>()
#define NAMED(field_name, record, member, ...)                                                     \
    wifi_field                                                                                     \
    {                                                                                              \
        .name = field_name, KIND(record, member), MEMBER(record, member), __VA_ARGS__              \
    }
#define FIELD(record, member, ...) NAMED(#member, record, member, __VA_ARGS__)
#define AT(scope, name) .where = scope, .option = name

inline constexpr char WIFI_R0KH_PREFIX[] = "ff:ff:ff:ff:ff:ff,*,"; // any holder, with that key

/// Of wifi_settings.
inline constexpr wifi_field NODE_FIELDS[] = {
    FIELD(wifi_settings, enable),
    FIELD(wifi_settings, ap_scan, .stage = FOREIGN), // nobody turns it on
    FIELD(wifi_settings, delayed, AT(NODE, "tarn_net.local.delayed_wifi")),
    FIELD(wifi_settings, save_orphans),
    FIELD(wifi_settings, reg_outdoor, AT(NODE, "tarn_net.local.outdoor"), .stage = STAGED),
    FIELD(wifi_settings, reg_country, AT(RADIO, "wireless.radio%d.country"), .stage = STAGED),
    FIELD(wifi_settings, dfs_enable, AT(DFS_RADIO, "wireless.radio%d.dfs_enable"), .stage = STAGED),
    FIELD(wifi_settings, dfs_channel_count, AT(DFS_RADIO, "wireless.radio%d.chanlist_count"),
          .stage = STAGED, .use = ALSO),
    FIELD(wifi_settings, dfs_channels, AT(DFS_RADIO, "wireless.radio%d.channels"), .stage = STAGED),
    FIELD(wifi_settings, mesh_protocol, AT(NODE, "network.bat0.routing_algo"), .stage = STAGED),
    FIELD(wifi_settings, hop_penalty, AT(NODE, "network.bat0.hop_penalty"), .stage = STAGED),
    FIELD(wifi_settings, gw_stickiness, AT(NODE, "network.bat0.gw_stickiness"), .stage = STAGED),
    FIELD(wifi_settings, bridge_loop_avoidance, AT(NODE, "network.bat0.bridge_loop_avoidance"),
          .stage = STAGED),
    FIELD(wifi_settings, mesh_key, AT(RADIO, "wireless.mesh%d.key"), .stage = STAGED,
          .secret = true),
    FIELD(wifi_settings, antenna_type, AT(NODE, "tarn_net.local.antenna"), .stage = STAGED),
    FIELD(wifi_settings, radio_override, AT(NODE, "tarn_net.local.radio_override")),
    FIELD(wifi_settings, override_reason, AT(NODE, "tarn_net.local.override_reason")),
    FIELD(wifi_settings, node_id, AT(NODE, "fw_core.local.node_id"), .absent = -1),
    FIELD(wifi_settings, orphan_connect_bssid),
    FIELD(wifi_settings, orphan_connect_radio),
    FIELD(wifi_settings, scanning_period, AT(NODE, "u80211d.global.scan_period")),
    FIELD(wifi_settings, presence_enable, AT(NODE, "prequestd.prequestd.enable")),
    FIELD(wifi_settings, presence_interval, AT(NODE, "prequestd.prequestd.interval")),
    FIELD(wifi_settings, scanning_phy, AT(NODE, "u80211d.global.scan_phy"), .stage = FOREIGN),
    FIELD(wifi_settings, dpi_enable, AT(NODE, "tarn_net.local.dpi_enable"), .stage = FOREIGN),
    FIELD(wifi_settings, wired_client_ssid, AT(NODE, "tarn_net.wired.wired_client_ssid"),
          .stage = FOREIGN),
    FIELD(wifi_settings, disable_wired_client, AT(NODE, "tarn_net.wired.disable_wired_client"),
          .stage = FOREIGN),
    FIELD(wifi_settings, recover_config_errors, AT(NODE, "tarn_net.local.recover_config_errors"),
          .stage = FOREIGN),
};
static_assert(offsetof(wifi_settings, dfs_channel_count) ==
              offsetof(wifi_settings, dfs_channels) + sizeof(wifi_settings::dfs_channels));

/// Of wifi_ssid_settings.
inline constexpr wifi_field SSID_FIELDS[] = {
    FIELD(wifi_ssid_settings, configured, .hidden = true),
    FIELD(wifi_ssid_settings, enable, AT(SSID, "network.ssid%d.config_enable")),
    FIELD(wifi_ssid_settings, enable, AT(SSID, "ap_mgr.ssid%d.enable"), .use = ALSO),
    FIELD(wifi_ssid_settings, ssid, AT(SSID, "ap_mgr.ssid%d.ssid")),
    FIELD(wifi_ssid_settings, key, AT(AP, "wireless.ap%d_%d.key"), .secret = true),
    FIELD(wifi_ssid_settings, enc, AT(AP, "wireless.ap%d_%d.encryption")),
    FIELD(wifi_ssid_settings, client_isolate, AT(AP, "wireless.ap%d_%d.isolate"), .use = ALSO),
    FIELD(wifi_ssid_settings, radius_server, AT(AP, "wireless.ap%d_%d.auth_server")),
    FIELD(wifi_ssid_settings, radius_key, AT(AP, "wireless.ap%d_%d.auth_secret"), .secret = true),
    FIELD(wifi_ssid_settings, radius_port, AT(AP, "wireless.ap%d_%d.auth_port")),
    FIELD(wifi_ssid_settings, vlan_tag, AT(SSID, "network.ssid%d_vlan.vid"), .absent = -1),
    FIELD(wifi_ssid_settings, bridge_to_lan, AT(SSID, "network.ssid%d.bridge_to_lan")),
    FIELD(wifi_ssid_settings, rebind_protection, AT(SSID, "dhcp.ssid%d_dns.rebind_protection")),
    FIELD(wifi_ssid_settings, roaming_domain, AT(AP, "wireless.ap%d_%d.mobility_domain"),
          .use = DERIVED),
    FIELD(wifi_ssid_settings, roaming_key, AT(AP, "wireless.ap%d_%d.r0kh"), .use = DERIVED,
          .prefix = WIFI_R0KH_PREFIX, .secret = true, .dumped_openly = true),
    FIELD(wifi_ssid_settings, radius_acct_server, AT(AP, "wireless.ap%d_%d.acct_server")),
    FIELD(wifi_ssid_settings, radius_acct_key, AT(AP, "wireless.ap%d_%d.acct_secret"),
          .secret = true),
    FIELD(wifi_ssid_settings, radius_acct_port, AT(AP, "wireless.ap%d_%d.acct_port")),
    FIELD(wifi_ssid_settings, hidden, AT(AP, "wireless.ap%d_%d.hidden")),
    FIELD(wifi_ssid_settings, anyip),
    FIELD(wifi_ssid_settings, lan_block, AT(SSID, "firewall.tarn.lan_block%d")),
    FIELD(wifi_ssid_settings, band_steering, AT(SSID, "ap_mgr.ssid%d.band_steering")),
    FIELD(wifi_ssid_settings, roaming_80211v, AT(SSID, "ap_mgr.ssid%d.roaming_80211v"),
          .hidden = true),
    FIELD(wifi_ssid_settings, neigh_report, AT(SSID, "ap_mgr.ssid%d.neigh_report")),
    FIELD(wifi_ssid_settings, neigh_report, AT(AP, "wireless.ap%d_%d.neighbor_reports"),
          .use = ALSO),
    FIELD(wifi_ssid_settings, client_isolate, AT(SSID, "ap_mgr.ssid%d.client_isolate")),
    FIELD(wifi_ssid_settings, smtp_redir, AT(SSID, "firewall.ssid%dsmtp.dest_ip")),
    FIELD(wifi_ssid_settings, dns_servers, AT(SSID, "dhcp.ssid%d_dns.server"), .use = DERIVED),
    FIELD(wifi_ssid_settings, dns_intercept, AT(SSID, "network.ssid%d.dns_intercept")),
    NAMED("acl", wifi_ssid_settings, acl_list, AT(AP, "wireless.ap%d_%d.maclist"), .use = DERIVED),
    FIELD(wifi_ssid_settings, shaping_enable, AT(SSID, "udshape.ssid%d.enable"), .stage = FOREIGN),
    FIELD(wifi_ssid_settings, safecheck_enable, AT(AP, "wireless.ap%d_%d.safecheck_enable")),
};

/// Of wifi_band_settings; "%d" in a name is the band's number.
inline constexpr wifi_field BAND_FIELDS[] = {
    NAMED("band%d_enable", wifi_band_settings, enable),
    NAMED("band%d_ssid", wifi_band_settings, ssid),
};

/// Of wifi_dhcp_settings. While it is not enabled, the options hold the node's own addresses.
inline constexpr wifi_field DHCP_FIELDS[] = {
    NAMED("dhcp_enable", wifi_dhcp_settings, enable, AT(SSID, "network.ssid%d.custom_dhcp")),
    NAMED("dhcp_gateway", wifi_dhcp_settings, gateway_ip, AT(SSID, "network.ssid%d.ipaddr"),
          .use = DERIVED, .while_enabled = true),
    NAMED("dhcp_netmask", wifi_dhcp_settings, netmask, AT(SSID, "network.ssid%d.netmask"),
          .use = DERIVED, .while_enabled = true),
    NAMED("dhcp_relay", wifi_dhcp_settings, relay, AT(SSID, "dhcp.relay_ssid%d.server_addr"),
          .use = DERIVED, .hidden = true),
    NAMED("dhcp_start", wifi_dhcp_settings, start, AT(SSID, "dhcp.ssid%d.start"),
          .while_enabled = true),
    NAMED("dhcp_leases", wifi_dhcp_settings, num_leases, AT(SSID, "dhcp.ssid%d.limit"),
          .while_enabled = true),
    NAMED("dhcp_lease_length", wifi_dhcp_settings, lease_len, AT(SSID, "dhcp.ssid%d.leasetime"),
          .while_enabled = true),
};

/// Of wifi_radio_settings.
inline constexpr wifi_field RADIO_FIELDS[] = {
    FIELD(wifi_radio_settings, enable, AT(RADIO, "wireless.radio%d.enable"), .stage = STAGED),
    wifi_field{.name = "channel",
               .kind = SETTINGS_INT,
               MEMBER(wifi_radio_settings, channel),
               AT(RADIO, "wireless.radio%d.channel"),
               .stage = STAGED},
    FIELD(wifi_radio_settings, htmode, AT(RADIO, "wireless.radio%d.htmode"), .stage = STAGED),
    FIELD(wifi_radio_settings, mesh_enable, AT(RADIO, "wireless.mesh%d.config_enable"),
          .stage = STAGED, .use = DERIVED),
    FIELD(wifi_radio_settings, txpower, AT(RADIO, "wireless.radio%d.txpower")),
    FIELD(wifi_radio_settings, rtscts, AT(RADIO, "wireless.radio%d.rts")),
    FIELD(wifi_radio_settings, disable_lower_rates,
          AT(RADIO, "wireless.radio%d.disable_lower_rates")),
};

#undef MEMBER
#undef KIND
#undef NAMED
#undef FIELD
#undef AT

/// The row of that name that is read back.
constexpr const wifi_field *wifi_find_field(std::span<const wifi_field> rows, std::string_view name)
{
    for (const wifi_field &row : rows)
        if (row.use != ALSO && name == row.name)
            return &row;
    return nullptr;
}

constexpr bool field_is_list(const wifi_field &row)
{
    return row.kind == SETTINGS_STRINGS || row.kind == SETTINGS_INTS;
}

/// A setting of the record's part as texts: one, or those of a list.
std::vector<std::string> field_texts(const wifi_field &row, const char *part);
/// True when `good` holds for each of a setting's texts, and of a number.
bool field_texts_are(const wifi_field &row, const char *part, bool (*good)(const char *text));
/// The other way round of field_texts(), cut to what there is room for. A text that is no number
/// counts as the row's `absent`, in a list as 0.
void field_store(const wifi_field &row, char *part, const std::vector<std::string> &texts);
