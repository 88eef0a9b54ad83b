// What the wireless package shows of its settings: for each table of the dump its keys in order.
// Those are given; a setting that none of them names follows at the end of its part's table, under
// its row's name.

#include "wifi/settings/dump.h"

#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"
#include "wifi/settings/dump_table.h"
#include "wifi/wifi.h"

constexpr dump_item BAND_ITEMS[] = {{"ssid_name", "band%d_ssid"}, {"enable", "band%d_enable"}};
constexpr dump_table BAND = dump_table_of<BAND_FIELDS, BAND_ITEMS>("band");

static int dump_bands(blob_buf *buf, const void *part, bool include_secrets)
{
    const auto *ssid = static_cast<const wifi_ssid_settings *>(part);
    const dump_nest bands(buf, "bands", false);
    for (int band = 0; bands && band < WIFI_BANDS; band++) {
        if (band == WIFI_BAND_SCANNING || !ssid->bands[band].ssid[0])
            continue;
        if (const dump_nest table(buf, wifi_band_name(band), false); table)
            dump_part(buf, BAND, &ssid->bands[band], include_secrets);
    }
    return 0;
}

constexpr dump_item DHCP_ITEMS[] = {
    {"enable", "dhcp_enable"}, {"gateway", "dhcp_gateway"},   {"netmask", "dhcp_netmask"},
    {"start", "dhcp_start"},   {"num_leases", "dhcp_leases"}, {"lease_len", "dhcp_lease_length"},
};
constexpr dump_table DHCP = dump_table_of<DHCP_FIELDS, DHCP_ITEMS>("dhcp");

static int dump_dhcp(blob_buf *buf, const void *part, bool include_secrets)
{
    const wifi_dhcp_settings *dhcp = &static_cast<const wifi_ssid_settings *>(part)->dhcp;
    if (const dump_nest table(buf, "dhcp", false); table)
        dump_part(buf, DHCP, dhcp, include_secrets);
    return 0;
}

// Shown of each SSID, and of an enabled one.
constexpr dump_item SSID_ENABLE_ITEMS[] = {{"enable"}};
constexpr dump_table SSID_ENABLE = dump_table_of<SSID_FIELDS, SSID_ENABLE_ITEMS>("ssid");
constexpr dump_item SSID_ITEMS[] = {
    {"name", "ssid"},
    {"key"},
    {"enc"},
    {"radius_server"},
    {"radius_key"},
    {"radius_port"},
    {"radius_acct_server"},
    {"radius_acct_key"},
    {"radius_acct_port"},
    {"vlan_tag"},
    {"bridge_to_lan"},
    {"rebind_protection"},
    {"safecheck_enable"},
    {"roaming_domain"},
    {"roaming_key"},
    {"hidden"},
    {"neigh_report"},
    {"band_steering"},
    {"anyip"},
    {"lan_block"},
    {"client_isolate"},
    {"smtp_redir"},
    {"dns_intercept"},
    {"dns_servers", nullptr, "dns_server"},
    {"acl_list", "acl", "acl_mac"},
    {.key = "bands", .add = dump_bands},
    {.key = "dhcp", .add = dump_dhcp},
    {"shaping_enable"},
};
constexpr dump_table SSID_TABLE = dump_table_of<SSID_FIELDS, SSID_ITEMS, SSID_ENABLE_ITEMS>("ssid");

static void wifi_dump_ssid_settings(blob_buf *buf, const wifi_ssid_settings &ssid, int index,
                                    bool include_secrets)
{
    const dump_nest table(buf, "ssid", false);
    if (!table)
        return;
    dump_report(blobmsg_add_u32(buf, "index", static_cast<uint32_t>(index)), SSID_TABLE, "index");
    dump_items(buf, SSID_ENABLE, &ssid, include_secrets);
    if (!ssid.enable)
        return;
    dump_part(buf, SSID_TABLE, &ssid, include_secrets);
}

// Shown of each radio, and of an enabled one.
constexpr dump_item RADIO_ENABLE_ITEMS[] = {{"enable"}};
constexpr dump_table RADIO_ENABLE = dump_table_of<RADIO_FIELDS, RADIO_ENABLE_ITEMS>("radio");
constexpr dump_item RADIO_ITEMS[] = {
    {"channel"}, {"mode", "htmode"},      {"txpower"},
    {"rtscts"},  {"disable_lower_rates"}, {"mesh_enable"},
};
constexpr dump_table RADIO_TABLE =
    dump_table_of<RADIO_FIELDS, RADIO_ITEMS, RADIO_ENABLE_ITEMS>("radio");

static void wifi_dump_radio_settings(blob_buf *buf, const wifi_radio_settings &radio, int index,
                                     const char *band)
{
    const dump_nest table(buf, "radio", false);
    if (!table)
        return;
    dump_report(blobmsg_add_u32(buf, "index", static_cast<uint32_t>(index)), RADIO_TABLE, "index");
    dump_items(buf, RADIO_ENABLE, &radio, false);
    dump_report(blobmsg_add_string(buf, "band", band), RADIO_TABLE, "band");
    if (radio.enable == 0)
        return;
    dump_part(buf, RADIO_TABLE, &radio, false);
}

constexpr dump_item BATMAN_ITEMS[] = {
    {"hop_penalty"}, {"gw_stickiness"}, {"bridge_loop_avoidance"}};
constexpr dump_table BATMAN = dump_table_of<NODE_FIELDS, BATMAN_ITEMS>("batman");

static int dump_batman(blob_buf *buf, const void *part, bool include_secrets)
{
    if (const dump_nest table(buf, "batman", false); table)
        dump_items(buf, BATMAN, part, include_secrets);
    return 0;
}

constexpr dump_item MESH_ITEMS[] = {
    {"protocol", "mesh_protocol"}, {.key = "batman", .add = dump_batman}, {"key", "mesh_key"}};
constexpr dump_table MESH = dump_table_of<NODE_FIELDS, MESH_ITEMS>("mesh");

static int wifi_dump_mesh_settings(blob_buf *buf, const void *part, bool include_secrets)
{
    if (const dump_nest table(buf, "mesh", false); table)
        dump_items(buf, MESH, part, include_secrets);
    return 0;
}

static int dump_dfs_channels(blob_buf *buf, const void *part, bool include_secrets)
{
    if (!static_cast<const wifi_settings *>(part)->dfs_enable)
        return 0;
    return dump_setting(buf, {"dfs_channels", nullptr, "channel"},
                        *wifi_find_field(NODE_FIELDS, "dfs_channels"), part, include_secrets);
}

static int dump_ssids(blob_buf *buf, const void *part, bool include_secrets)
{
    const auto *settings = static_cast<const wifi_settings *>(part);
    const dump_nest array(buf, "ssids", true);
    for (int i = 0; array && i < WIFI_SSIDS; i++)
        wifi_dump_ssid_settings(buf, settings->ssids[i], i + 1, include_secrets);
    return 0;
}

static int dump_radios(blob_buf *buf, const void *part, bool)
{
    const auto *settings = static_cast<const wifi_settings *>(part);
    const dump_nest array(buf, "radios", true);
    const int radios = wifi_radio_count();
    for (int i = 0; array && i < radios; i++) {
        const int band = wifi_radio_band_type(i);
        if (band >= 0)
            wifi_dump_radio_settings(buf, settings->radios[i], i, wifi_band_name(band));
    }
    return 0;
}

static int dump_presence_interval(blob_buf *buf, const void *part, bool)
{
    const auto *settings = static_cast<const wifi_settings *>(part);
    if (!settings->presence_enable)
        return 0;
    return blobmsg_add_u32(buf, "presence_interval",
                           static_cast<uint32_t>(settings->presence_interval));
}

static int dump_orphan_connect_radio(blob_buf *buf, const void *part, bool)
{
    const auto *settings = static_cast<const wifi_settings *>(part);
    const char *band = platform_wireless_get_radio_band_name(settings->orphan_connect_radio);
    return band ? blobmsg_add_string(buf, "orphan_connect_radio", band) : -1;
}

static int dump_antenna_type(blob_buf *buf, const void *part, bool)
{
    static constexpr const char *NAMES[] = {"Internal", "dipole", "patch"};
    const int type = static_cast<const wifi_settings *>(part)->antenna_type;
    return blobmsg_add_string(buf, "antenna_type", NAMES[type == 1 || type == 2 ? type : 0]);
}

constexpr dump_item TOP_ITEMS[] = {
    {.key = "enable", .failed = "wifi enable flag"},
    {"ap_scan"},
    {"delayed"},
    {"save_orphans"},
    {.key = "radio_override", .failed = "radio_override nonce"},
    {"override_reason"},
    {.key = "reg_outdoor", .failed = "outdoor AP flag"},
    {"reg_country"},
    {"dfs_enable"},
    {"dpi_enable"},
    {.key = "dfs_channels", .add = dump_dfs_channels},
    {.key = "ssids", .add = dump_ssids},
    {.key = "radios", .add = dump_radios},
    {.key = "mesh", .add = wifi_dump_mesh_settings},
    {"presence_enable"},
    {.key = "presence_interval", .add = dump_presence_interval},
    {"node_id"},
    {"wired_client_ssid"},
    {"disable_wired_client"},
    {"orphan_connect_bssid"},
    {.key = "orphan_connect_radio", .add = dump_orphan_connect_radio},
    {"scanning_period"},
    {"scanning_phy"},
    {.key = "antenna_type", .add = dump_antenna_type},
    {"recover_config_errors"},
};
constexpr dump_table TOP = dump_table_of<NODE_FIELDS, TOP_ITEMS, MESH_ITEMS, BATMAN_ITEMS>("");

int wifi_dump_settings(blob_buf *buf, const wifi_settings *settings, bool include_secrets)
{
    if (!buf || !settings) {
        log_error("%s is NULL", buf ? "settings" : "buf");
        return -1;
    }
    dump_part(buf, TOP, settings, include_secrets);
    return 0;
}
