// Every setting that outlives the daemon, and where the configuration says it: one row each.
//
// What a push writes for other services mostly says what was pushed: the row's "home". What no home
// says (a disabled network's key, say) is kept in sections of our own package: "settings",
// "settings_ssid1" to 4, "settings_radio0" to 2. An option there counts before its home and is
// there only while the home says something else, so what an operator configures is read back.
// Values are kept with "=" before them, as an option cannot be empty; list items with their number,
// as lists hold no duplicates.
#include "wifi/write/kept.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/writer_internal.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <span>

namespace {

enum kept_kind : uint8_t { KEPT_BOOL, KEPT_INT, KEPT_TEXT, KEPT_TEXTS, KEPT_CHANNELS };
enum kept_owner : uint8_t {
    DIRECT,      // written with every push
    RADIO_STAGE, // possibly held back
    FOREIGN,     // not the settings writer's: read, never kept
};

struct kept_row {
    const char *option;
    kept_kind kind;
    uint32_t offset, size; // of the member; of TEXTS the number of texts
    kept_owner owner = DIRECT;
    // In it R stands for the radio, D for the first with DFS, S for the SSID's number. With "C" at
    // its beginning it is one only while the SSID has DHCP settings of its own.
    const char *home = nullptr;
    const char *prefix = ""; // before the value at home
    int absent = 0;          // what a number is when its home is not there
};

#define MEMBER(record, member) offsetof(record, member), sizeof(record::member)

constexpr kept_row TOP_ROWS[] = {
    {"enable", KEPT_BOOL, MEMBER(wifi_settings, enable)},
    {"delayed", KEPT_BOOL, MEMBER(wifi_settings, delayed), DIRECT, "tarn_net.local.delayed_wifi"},
    {"save_orphans", KEPT_BOOL, MEMBER(wifi_settings, save_orphans)},
    {"reg_outdoor", KEPT_BOOL, MEMBER(wifi_settings, reg_outdoor), RADIO_STAGE,
     "tarn_net.local.outdoor"},
    {"reg_country", KEPT_TEXT, MEMBER(wifi_settings, reg_country), RADIO_STAGE,
     "wireless.radioR.country"},
    {"dfs_enable", KEPT_BOOL, MEMBER(wifi_settings, dfs_enable), RADIO_STAGE,
     "wireless.radioD.dfs_enable"},
    {"dfs_channels", KEPT_CHANNELS, MEMBER(wifi_settings, dfs_channels), RADIO_STAGE,
     "wireless.radioD.channels"},
    {"mesh_protocol", KEPT_TEXT, MEMBER(wifi_settings, mesh_protocol), RADIO_STAGE,
     "network.bat0.routing_algo"},
    {"hop_penalty", KEPT_INT, MEMBER(wifi_settings, hop_penalty), RADIO_STAGE,
     "network.bat0.hop_penalty"},
    {"gw_stickiness", KEPT_INT, MEMBER(wifi_settings, gw_stickiness), RADIO_STAGE,
     "network.bat0.gw_stickiness"},
    {"bridge_loop_avoidance", KEPT_BOOL, MEMBER(wifi_settings, bridge_loop_avoidance), RADIO_STAGE,
     "network.bat0.bridge_loop_avoidance"},
    {"mesh_key", KEPT_TEXT, MEMBER(wifi_settings, mesh_key), RADIO_STAGE, "wireless.meshR.key"},
    {"antenna_type", KEPT_INT, MEMBER(wifi_settings, antenna_type), RADIO_STAGE,
     "tarn_net.local.antenna"},
    {"radio_override", KEPT_TEXT, MEMBER(wifi_settings, radio_override), DIRECT,
     "tarn_net.local.radio_override"},
    {"override_reason", KEPT_TEXT, MEMBER(wifi_settings, override_reason), DIRECT,
     "tarn_net.local.override_reason"},
    {"node_id", KEPT_INT, MEMBER(wifi_settings, node_id), DIRECT, "fw_core.local.node_id", "", -1},
    {"orphan_connect_bssid", KEPT_TEXT, MEMBER(wifi_settings, orphan_connect_bssid)},
    {"orphan_connect_radio", KEPT_INT, MEMBER(wifi_settings, orphan_connect_radio)},
    {"scanning_period", KEPT_INT, MEMBER(wifi_settings, scanning_period), DIRECT,
     "u80211d.global.scan_period"},
    {"presence_enable", KEPT_BOOL, MEMBER(wifi_settings, presence_enable), DIRECT,
     "prequestd.prequestd.enable"},
    {"presence_interval", KEPT_INT, MEMBER(wifi_settings, presence_interval), DIRECT,
     "prequestd.prequestd.interval"},
    {"scanning_phy", KEPT_INT, MEMBER(wifi_settings, scanning_phy), FOREIGN,
     "u80211d.global.scan_phy"},
    {"dpi_enable", KEPT_BOOL, MEMBER(wifi_settings, dpi_enable), FOREIGN,
     "tarn_net.local.dpi_enable"},
    {"wired_client_ssid", KEPT_INT, MEMBER(wifi_settings, wired_client_ssid), FOREIGN,
     "tarn_net.wired.wired_client_ssid"},
    {"disable_wired_client", KEPT_BOOL, MEMBER(wifi_settings, disable_wired_client), FOREIGN,
     "tarn_net.wired.disable_wired_client"},
    {"recover_config_errors", KEPT_BOOL, MEMBER(wifi_settings, recover_config_errors), FOREIGN,
     "tarn_net.local.recover_config_errors"},
};

#define BAND(number)                                                                               \
    {"band" #number "_enable", KEPT_INT,                                                           \
     offsetof(wifi_ssid_settings, bands) + (number) * sizeof(wifi_band_settings) +                 \
         offsetof(wifi_band_settings, enable),                                                     \
     sizeof(wifi_band_settings::enable)},                                                          \
    {                                                                                              \
        "band" #number "_ssid", KEPT_TEXT,                                                         \
            offsetof(wifi_ssid_settings, bands) + (number) * sizeof(wifi_band_settings) +          \
                offsetof(wifi_band_settings, ssid),                                                \
            sizeof(wifi_band_settings::ssid)                                                       \
    }

// An SSID's radio is the first that is not for scanning.
constexpr kept_row SSID_ROWS[] = {
    {"configured", KEPT_BOOL, MEMBER(wifi_ssid_settings, configured)},
    {"enable", KEPT_BOOL, MEMBER(wifi_ssid_settings, enable), DIRECT,
     "network.ssidS.config_enable"},
    {"ssid", KEPT_TEXT, MEMBER(wifi_ssid_settings, ssid), DIRECT, "ap_mgr.ssidS.ssid"},
    {"key", KEPT_TEXT, MEMBER(wifi_ssid_settings, key), DIRECT, "wireless.apR_S.key"},
    {"enc", KEPT_TEXT, MEMBER(wifi_ssid_settings, enc), DIRECT, "wireless.apR_S.encryption"},
    {"radius_server", KEPT_TEXT, MEMBER(wifi_ssid_settings, radius_server), DIRECT,
     "wireless.apR_S.auth_server"},
    {"radius_key", KEPT_TEXT, MEMBER(wifi_ssid_settings, radius_key), DIRECT,
     "wireless.apR_S.auth_secret"},
    {"radius_port", KEPT_INT, MEMBER(wifi_ssid_settings, radius_port), DIRECT,
     "wireless.apR_S.auth_port"},
    {"vlan_tag", KEPT_INT, MEMBER(wifi_ssid_settings, vlan_tag), DIRECT, "network.ssidS_vlan.vid",
     "", -1},
    {"bridge_to_lan", KEPT_BOOL, MEMBER(wifi_ssid_settings, bridge_to_lan), DIRECT,
     "network.ssidS.bridge_to_lan"},
    {"rebind_protection", KEPT_BOOL, MEMBER(wifi_ssid_settings, rebind_protection), DIRECT,
     "dhcp.ssidS_dns.rebind_protection"},
    {"roaming_domain", KEPT_TEXT, MEMBER(wifi_ssid_settings, roaming_domain), DIRECT,
     "wireless.apR_S.mobility_domain"},
    {"roaming_key", KEPT_TEXT, MEMBER(wifi_ssid_settings, roaming_key), DIRECT,
     "wireless.apR_S.r0kh", WIFI_R0KH_PREFIX},
    {"radius_acct_server", KEPT_TEXT, MEMBER(wifi_ssid_settings, radius_acct_server), DIRECT,
     "wireless.apR_S.acct_server"},
    {"radius_acct_key", KEPT_TEXT, MEMBER(wifi_ssid_settings, radius_acct_key), DIRECT,
     "wireless.apR_S.acct_secret"},
    {"radius_acct_port", KEPT_INT, MEMBER(wifi_ssid_settings, radius_acct_port), DIRECT,
     "wireless.apR_S.acct_port"},
    {"hidden", KEPT_BOOL, MEMBER(wifi_ssid_settings, hidden), DIRECT, "wireless.apR_S.hidden"},
    {"neigh_report", KEPT_BOOL, MEMBER(wifi_ssid_settings, neigh_report), DIRECT,
     "ap_mgr.ssidS.neigh_report"},
    {"anyip", KEPT_BOOL, MEMBER(wifi_ssid_settings, anyip)},
    {"lan_block", KEPT_BOOL, MEMBER(wifi_ssid_settings, lan_block), DIRECT,
     "firewall.tarn.lan_blockS"},
    {"client_isolate", KEPT_BOOL, MEMBER(wifi_ssid_settings, client_isolate), DIRECT,
     "ap_mgr.ssidS.client_isolate"},
    {"smtp_redir", KEPT_TEXT, MEMBER(wifi_ssid_settings, smtp_redir), DIRECT,
     "firewall.ssidSsmtp.dest_ip"},
    {"dns_servers", KEPT_TEXTS, offsetof(wifi_ssid_settings, dns_servers), WIFI_DNS_SERVERS_MAX,
     DIRECT, "dhcp.ssidS_dns.server"},
    {"dns_intercept", KEPT_BOOL, MEMBER(wifi_ssid_settings, dns_intercept), DIRECT,
     "network.ssidS.dns_intercept"},
    {"acl", KEPT_TEXTS, offsetof(wifi_ssid_settings, acl_list), WIFI_ACL_MAX, DIRECT,
     "wireless.apR_S.maclist"},
    BAND(0),
    BAND(1),
    BAND(2),
    BAND(3),
    BAND(4),
    {"dhcp_enable", KEPT_BOOL, MEMBER(wifi_ssid_settings, dhcp.enable), DIRECT,
     "network.ssidS.custom_dhcp"},
    {"dhcp_gateway", KEPT_TEXT, MEMBER(wifi_ssid_settings, dhcp.gateway_ip), DIRECT,
     "Cnetwork.ssidS.ipaddr"},
    {"dhcp_netmask", KEPT_TEXT, MEMBER(wifi_ssid_settings, dhcp.netmask), DIRECT,
     "Cnetwork.ssidS.netmask"},
    {"dhcp_relay", KEPT_TEXT, MEMBER(wifi_ssid_settings, dhcp.relay), DIRECT,
     "dhcp.relay_ssidS.server_addr"},
    {"dhcp_start", KEPT_INT, MEMBER(wifi_ssid_settings, dhcp.start), DIRECT, "Cdhcp.ssidS.start"},
    {"dhcp_leases", KEPT_INT, MEMBER(wifi_ssid_settings, dhcp.num_leases), DIRECT,
     "Cdhcp.ssidS.limit"},
    {"dhcp_lease_length", KEPT_TEXT, MEMBER(wifi_ssid_settings, dhcp.lease_len), DIRECT,
     "Cdhcp.ssidS.leasetime"},
    {"band_steering", KEPT_BOOL, MEMBER(wifi_ssid_settings, band_steering), DIRECT,
     "ap_mgr.ssidS.band_steering"},
    {"roaming_80211v", KEPT_BOOL, MEMBER(wifi_ssid_settings, roaming_80211v), DIRECT,
     "ap_mgr.ssidS.roaming_80211v"},
    {"shaping_enable", KEPT_BOOL, MEMBER(wifi_ssid_settings, shaping_enable), FOREIGN,
     "udshape.ssidS.enable"},
    {"safecheck_enable", KEPT_BOOL, MEMBER(wifi_ssid_settings, safecheck_enable), DIRECT,
     "wireless.apR_S.safecheck_enable"},
};

constexpr kept_row RADIO_ROWS[] = {
    {"enable", KEPT_INT, MEMBER(wifi_radio_settings, enable), RADIO_STAGE,
     "wireless.radioR.enable"},
    {"channel", KEPT_INT, MEMBER(wifi_radio_settings, channel), RADIO_STAGE,
     "wireless.radioR.channel"},
    {"htmode", KEPT_TEXT, MEMBER(wifi_radio_settings, htmode), RADIO_STAGE,
     "wireless.radioR.htmode"},
    {"mesh_enable", KEPT_BOOL, MEMBER(wifi_radio_settings, mesh_enable), RADIO_STAGE,
     "wireless.meshR.config_enable"},
    {"txpower", KEPT_INT, MEMBER(wifi_radio_settings, txpower), DIRECT, "wireless.radioR.txpower"},
    {"rtscts", KEPT_INT, MEMBER(wifi_radio_settings, rtscts), DIRECT, "wireless.radioR.rts"},
    {"disable_lower_rates", KEPT_INT, MEMBER(wifi_radio_settings, disable_lower_rates), DIRECT,
     "wireless.radioR.disable_lower_rates"},
};

#undef MEMBER
#undef BAND

// A group of rows, the part of the record they describe and the section they are kept in.
struct kept_group {
    std::span<const kept_row> rows;
    char *record;
    std::string section;
    int radio, dfs_radio, ssid; // -1: none
};

using values = std::vector<std::string>;

// ---- a row's values in the record, as texts

constexpr size_t DNS_SIZE = sizeof(wifi_ssid_settings::dns_servers[0]);
constexpr size_t ACL_SIZE = sizeof(wifi_ssid_settings::acl_list[0]);

size_t text_size(const kept_row &row)
{
    return row.size == WIFI_ACL_MAX ? ACL_SIZE : DNS_SIZE;
}

bool is_list(const kept_row &row)
{
    return row.kind == KEPT_TEXTS || row.kind == KEPT_CHANNELS;
}

values texts_of(const kept_row &row, const char *member)
{
    values texts;
    for (size_t i = 0; i < row.size && member[i * text_size(row)]; i++)
        texts.emplace_back(member + i * text_size(row));
    return texts;
}

values channels_of(const char *member)
{
    const auto *settings =
        reinterpret_cast<const wifi_settings *>(member - offsetof(wifi_settings, dfs_channels));
    values texts;
    for (int i = 0; i < settings->dfs_channel_count; i++)
        texts.push_back(std::to_string(settings->dfs_channels[i]));
    return texts;
}

values values_of(const kept_row &row, const char *record)
{
    const char *member = record + row.offset;
    int32_t number;
    switch (row.kind) {
    case KEPT_BOOL:
        return {*member ? "1" : "0"};
    case KEPT_INT:
        memcpy(&number, member, sizeof number);
        return {std::to_string(number)};
    case KEPT_TEXT:
        return {member};
    case KEPT_TEXTS:
        return texts_of(row, member);
    case KEPT_CHANNELS:
        return channels_of(member);
    }
    return {};
}

int number_of(const std::string &text, int otherwise)
{
    const char *end = text.data() + text.size();
    int32_t number;
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? number : otherwise;
}

void store_texts(const kept_row &row, char *member, const values &from)
{
    memset(member, 0, row.size * text_size(row));
    for (size_t i = 0; i < from.size() && i < row.size; i++)
        snprintf(member + i * text_size(row), text_size(row), "%s", from[i].c_str());
}

void store_channels(char *member, const values &from)
{
    auto *settings =
        reinterpret_cast<wifi_settings *>(member - offsetof(wifi_settings, dfs_channels));
    memset(settings->dfs_channels, 0, sizeof settings->dfs_channels);
    settings->dfs_channel_count = 0;
    for (const std::string &text : from)
        if (settings->dfs_channel_count < WIFI_DFS_CHANNELS_MAX)
            settings->dfs_channels[settings->dfs_channel_count++] = number_of(text, 0);
}

void store(const kept_row &row, char *record, const values &from)
{
    char *member = record + row.offset;
    int32_t number;
    switch (row.kind) {
    case KEPT_BOOL:
        *member = number_of(from.front(), row.absent) != 0;
        break;
    case KEPT_INT:
        number = number_of(from.front(), row.absent);
        memcpy(member, &number, sizeof number);
        break;
    case KEPT_TEXT:
        snprintf(member, row.size, "%s", from.front().c_str());
        break;
    case KEPT_TEXTS:
        store_texts(row, member, from);
        break;
    case KEPT_CHANNELS:
        store_channels(member, from);
        break;
    }
}

// ---- at home

/// Options that were passed over since the record was last read.
constinit std::vector<std::string> said_unfit;

/// Name of the row's home; empty when it has none.
std::string home_of(const kept_group &group, const kept_row &row)
{
    std::string name;
    for (const char *c = row.home ? row.home : ""; *c; c++) {
        if (*c == 'C' && !reinterpret_cast<const wifi_ssid_settings *>(group.record)->dhcp.enable)
            return {};
        if (*c == 'C')
            continue;
        const int number = *c == 'R'   ? group.radio
                           : *c == 'D' ? group.dfs_radio
                           : *c == 'S' ? group.ssid
                                       : 0;
        if (number < 0)
            return {};
        if (strchr("RDS", *c))
            name += std::to_string(number);
        else
            name += *c;
    }
    return name;
}

values absent_value(const kept_row &row)
{
    if (is_list(row))
        return {};
    return {row.kind == KEPT_TEXT ? "" : std::to_string(row.absent)};
}

/// What the option holds, but for what no setting can hold, which is said once.
values items_of(const std::string &name)
{
    values items = uci_items(name);
    const auto unfit = std::remove_if(items.begin(), items.end(), [](const std::string &item) {
        return !ng_uci_is_value(item.c_str());
    });
    if (unfit != items.end() &&
        std::find(said_unfit.begin(), said_unfit.end(), name) == said_unfit.end()) {
        log_warning("Dropping the value of '%s': it holds a control character", name.c_str());
        said_unfit.push_back(name);
    }
    items.erase(unfit, items.end());
    return items;
}

values values_at_home(const kept_group &group, const kept_row &row)
{
    const std::string home = home_of(group, row);
    values found = home.empty() ? values{} : items_of(home);
    const size_t prefix = strlen(row.prefix);
    for (std::string &value : found)
        value = value.compare(0, prefix, row.prefix) == 0 ? value.substr(prefix) : "";
    if (is_list(row) || found.size() == 1)
        return found;
    return absent_value(row);
}

// ---- kept

void keep_row(const kept_group &group, const kept_row &row)
{
    const std::string name = group.section + "." + row.option;
    const values wanted = values_of(row, group.record);
    uci_clear(name);
    if (row.owner == FOREIGN || wanted == values_at_home(group, row))
        return;
    if (!is_list(row)) {
        uci_put(name, ("=" + wanted.front()).c_str());
        return;
    }
    uci_add(name, "="); // also of an empty list there is something to be seen
    for (size_t i = 0; i < wanted.size(); i++)
        uci_add(name, std::to_string(i) + "=" + wanted[i]);
}

/// Empty when nothing is kept.
values kept_values(const kept_group &group, const kept_row &row)
{
    values found = items_of(group.section + "." + row.option);
    for (std::string &value : found)
        value.erase(0, value.find('=') + 1);
    return found;
}

void read_row(const kept_group &group, const kept_row &row, bool with_kept)
{
    const bool may_be_kept = (with_kept || row.owner == DIRECT) && row.owner != FOREIGN;
    values found = may_be_kept ? kept_values(group, row) : values{};
    if (found.empty())
        found = values_at_home(group, row);
    else if (is_list(row))
        found.erase(found.begin()); // what says that there is a list
    store(row, group.record, found);
}

// ---- the groups of a record

int first_radio(bool (*counts)(int band))
{
    for (int radio = 0; radio < wifi_radio_count(); radio++)
        if (counts(wifi_radio_band_type(radio)))
            return radio;
    return -1;
}

/// Calls `visit` for each group; one record is written only by readers.
template <typename visitor>
void for_each_group(const wifi_settings &settings, visitor visit)
{
    auto *top = reinterpret_cast<char *>(const_cast<wifi_settings *>(&settings));
    const int radio = first_radio([](int band) { return band != WIFI_BAND_SCANNING; });
    const int dfs_radio = first_radio([](int band) {
        return band == WIFI_BAND_5GHZ_LOW || band == WIFI_BAND_5GHZ_HIGH || band == WIFI_BAND_5GHZ;
    });
    visit(kept_group{TOP_ROWS, top, "tarn_net.settings", radio, dfs_radio, -1});
    for (int i = 0; i < WIFI_SSIDS; i++)
        visit(kept_group{SSID_ROWS,
                         top + offsetof(wifi_settings, ssids) +
                             static_cast<size_t>(i) * sizeof(wifi_ssid_settings),
                         numbered("tarn_net.settings_ssid", i + 1), radio, dfs_radio, i + 1});
    for (int i = 0; i < WIFI_RADIOS_MAX; i++)
        visit(kept_group{RADIO_ROWS,
                         top + offsetof(wifi_settings, radios) +
                             static_cast<size_t>(i) * sizeof(wifi_radio_settings),
                         numbered("tarn_net.settings_radio", i), i, dfs_radio, -1});
}

} // namespace

void wifi_keep_settings(const wifi_settings &settings)
{
    for_each_group(settings, [](const kept_group &group) {
        uci_put(group.section, "settings");
        for (const kept_row &row : group.rows)
            keep_row(group, row);
    });
}

void wifi_read_settings(wifi_settings *settings, bool with_kept)
{
    if (with_kept)
        said_unfit.clear();
    for_each_group(*settings, [with_kept](const kept_group &group) {
        for (const kept_row &row : group.rows)
            read_row(group, row, with_kept);
    });
}

bool wifi_settings_can_be_read()
{
    bool good = true;
    const auto check = [&good](const std::string &name) {
        const std::string package = name.substr(0, name.find('.'));
        good = good && ng_uci_check_readable(package.c_str()) != NG_UCI_UNREADABLE;
    };
    for_each_group(gWifi_live_settings, [check](const kept_group &group) {
        check(group.section);
        for (const kept_row &row : group.rows)
            if (row.home)
                check(row.home + (row.home[0] == 'C'));
    });
    return good;
}

void wifi_read_foreign_settings(wifi_settings *settings)
{
    for_each_group(*settings, [](const kept_group &group) {
        for (const kept_row &row : group.rows)
            if (row.owner == FOREIGN)
                read_row(group, row, false);
    });
}

static bool group_can_be_written(const kept_group &group)
{
    bool good = true;
    for (const kept_row &row : group.rows)
        for (const std::string &text : values_of(row, group.record))
            if (!ng_uci_is_value(text.c_str())) {
                // The text stays out of the log: it may be a key.
                log_error("'%s' of %s holds a control character", row.option,
                          group.section.c_str() + strlen("tarn_net."));
                good = false;
            }
    return good;
}

bool wifi_settings_can_be_written(const wifi_settings &settings)
{
    bool good = true;
    for_each_group(
        settings, [&good](const kept_group &group) { good = group_can_be_written(group) && good; });
    return good;
}
