// What the wireless package shows of its settings: one table of rows per level of the document,
// walked in order. Keys and order differ from those of the settings document, so the rows are these
// own ones.

#include "wifi/settings/dump.h"

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"
#include "wifi/wifi.h"

#include <cstddef>
#include <cstring>
#include <span>
#include <vector>

namespace {

enum dump_kind : uint8_t { DUMP_BOOL, DUMP_FLAG, DUMP_INT, DUMP_STRING, DUMP_BY_CODE };
enum dump_when : uint8_t { DUMP_ALWAYS, DUMP_WITH_SECRETS };

struct dump_row {
    const char *key;
    dump_kind kind;
    dump_when when;
    uint32_t offset;
    int (*add)(blob_buf *buf, const void *record, bool include_secrets); // of DUMP_BY_CODE
    const char *failed;
};

int add_value(blob_buf *buf, const dump_row &row, const char *member)
{
    switch (row.kind) {
    case DUMP_BOOL: {
        return blobmsg_add_u8(buf, row.key, *member != 0);
    }
    case DUMP_FLAG: {
        uint32_t flag;
        memcpy(&flag, member, sizeof(flag));
        return blobmsg_add_u8(buf, row.key, flag != 0);
    }
    case DUMP_INT: {
        uint32_t number;
        memcpy(&number, member, sizeof(number));
        return blobmsg_add_u32(buf, row.key, number);
    }
    case DUMP_STRING:
        return blobmsg_add_string(buf, row.key, member);
    case DUMP_BY_CODE:
        break;
    }
    return 0;
}

void dump_rows(blob_buf *buf, std::span<const dump_row> rows, const void *record,
               bool include_secrets)
{
    for (const dump_row &row : rows) {
        if (row.when == DUMP_WITH_SECRETS && !include_secrets)
            continue;
        const int result =
            row.kind == DUMP_BY_CODE
                ? row.add(buf, record, include_secrets)
                : add_value(buf, row, static_cast<const char *>(record) + row.offset);
        if (result != 0)
            log_info("%s", row.failed);
    }
}

#define SHOW(key, kind, record, member, failed)                                                    \
    {                                                                                              \
        key, kind, DUMP_ALWAYS, offsetof(record, member), nullptr, failed                          \
    }
#define SHOW_SECRET(key, record, member, failed)                                                   \
    {                                                                                              \
        key, DUMP_STRING, DUMP_WITH_SECRETS, offsetof(record, member), nullptr, failed             \
    }
#define SHOW_BY_CODE(key, add, failed)                                                             \
    {                                                                                              \
        key, DUMP_BY_CODE, DUMP_ALWAYS, 0, add, failed                                             \
    }

// A nested table or array; one that cannot be opened is reported and skipped.
class nest {
public:
    nest(blob_buf *buf, const char *name, bool array)
        : buf_(buf), cookie_(blobmsg_open_nested(buf, name, array))
    {
        if (!cookie_)
            log_warning("Unable to open '%s' for the state dump", name);
    }
    ~nest()
    {
        if (cookie_)
            blob_nest_end(buf_, cookie_);
    }
    nest(const nest &) = delete;
    nest &operator=(const nest &) = delete;
    explicit operator bool() const { return cookie_ != nullptr; }

private:
    blob_buf *buf_;
    void *cookie_;
};

// Adds `count` texts of one length that lie `size` bytes apart. An access list has a thousand: one
// element is made by libubox, the others are copies of it with another value.
int add_equal_texts(blob_buf *buf, const char *element, const char *texts, size_t count,
                    size_t size)
{
    blob_buffer model;
    if (blobmsg_buf_init(&model) != 0 || blobmsg_add_string(&model, element, texts) != 0)
        return -1;
    auto *attr = static_cast<blob_attr *>(blob_data(model.head));
    const size_t step = blob_pad_len(attr);
    const auto value = static_cast<char *>(blobmsg_data(attr)) - reinterpret_cast<char *>(attr);
    const size_t length = strlen(texts) + 1;
    std::vector<char> elements(count * step);
    for (char *at = elements.data(); count > 0; at += step, texts += size, count--) {
        memcpy(at, attr, step);
        memcpy(at + value, texts, length);
    }
    return blob_put_raw(buf, elements.data(), static_cast<unsigned>(elements.size())) ? 0 : -1;
}

// Texts of `size` bytes each up to the first empty one.
int dump_texts(blob_buf *buf, const char *name, const char *element, const char *texts,
               size_t slots, size_t size)
{
    const nest array(buf, name, true);
    int result = 0;
    while (array && slots > 0 && *texts) {
        const size_t length = strlen(texts);
        size_t count = 1;
        while (count < slots && strlen(texts + count * size) == length)
            count++;
        result |= add_equal_texts(buf, element, texts, count, size);
        texts += count * size;
        slots -= count;
    }
    return result;
}

int dump_dns_servers(blob_buf *buf, const void *record, bool)
{
    const auto *ssid = static_cast<const wifi_ssid_settings *>(record);
    return dump_texts(buf, "dns_servers", "dns_server", ssid->dns_servers[0], WIFI_DNS_SERVERS_MAX,
                      sizeof(ssid->dns_servers[0]));
}

int dump_acl_list(blob_buf *buf, const void *record, bool)
{
    const auto *ssid = static_cast<const wifi_ssid_settings *>(record);
    return dump_texts(buf, "acl_list", "acl_mac", ssid->acl_list[0], WIFI_ACL_MAX,
                      sizeof(ssid->acl_list[0]));
}

constexpr dump_row BAND_ROWS[] = {
    SHOW("ssid_name", DUMP_STRING, wifi_band_settings, ssid, "Unable to add band ssid name"),
    SHOW("enable", DUMP_FLAG, wifi_band_settings, enable, "Unable to add band enable flag"),
};

int dump_bands(blob_buf *buf, const void *record, bool include_secrets)
{
    const auto *ssid = static_cast<const wifi_ssid_settings *>(record);
    const nest bands(buf, "bands", false);
    for (int band = 0; bands && band < WIFI_BANDS; band++) {
        if (band == WIFI_BAND_SCANNING || !ssid->bands[band].ssid[0])
            continue;
        if (const nest table(buf, wifi_band_name(band), false); table)
            dump_rows(buf, BAND_ROWS, &ssid->bands[band], include_secrets);
    }
    return 0;
}

constexpr dump_row DHCP_ROWS[] = {
    SHOW("enable", DUMP_BOOL, wifi_dhcp_settings, enable, "Unable to add dhcp enable flag"),
    SHOW("gateway", DUMP_STRING, wifi_dhcp_settings, gateway_ip, "Unable to add dhcp gateway"),
    SHOW("netmask", DUMP_STRING, wifi_dhcp_settings, netmask, "Unable to add dhcp netmask"),
    SHOW("start", DUMP_INT, wifi_dhcp_settings, start, "Unable to add dhcp start"),
    SHOW("num_leases", DUMP_INT, wifi_dhcp_settings, num_leases, "Unable to add dhcp num_leases"),
    SHOW("lease_len", DUMP_STRING, wifi_dhcp_settings, lease_len, "Unable to add dhcp lease_len"),
};

int dump_dhcp(blob_buf *buf, const void *record, bool include_secrets)
{
    if (const nest table(buf, "dhcp", false); table)
        dump_rows(buf, DHCP_ROWS, &static_cast<const wifi_ssid_settings *>(record)->dhcp,
                  include_secrets);
    return 0;
}

// Shown of an enabled SSID, after its index and enable.
constexpr dump_row SSID_ROWS[] = {
    SHOW("name", DUMP_STRING, wifi_ssid_settings, ssid, "Unable to add ssid name"),
    SHOW_SECRET("key", wifi_ssid_settings, key, "Unable to add ssid key"),
    SHOW("enc", DUMP_STRING, wifi_ssid_settings, enc, "Unable to add ssid encryption"),
    SHOW("radius_server", DUMP_STRING, wifi_ssid_settings, radius_server,
         "Unable to add radius server"),
    SHOW_SECRET("radius_key", wifi_ssid_settings, radius_key, "Unable to add radius key"),
    SHOW("radius_port", DUMP_INT, wifi_ssid_settings, radius_port, "Unable to add radius port"),
    SHOW("radius_acct_server", DUMP_STRING, wifi_ssid_settings, radius_acct_server,
         "Unable to add radius accounting server"),
    SHOW_SECRET("radius_acct_key", wifi_ssid_settings, radius_acct_key,
                "Unable to add radius accounting key"),
    SHOW("radius_acct_port", DUMP_INT, wifi_ssid_settings, radius_acct_port,
         "Unable to add radius accounting port"),
    SHOW("vlan_tag", DUMP_INT, wifi_ssid_settings, vlan_tag, "Unable to add vlan tag"),
    SHOW("bridge_to_lan", DUMP_BOOL, wifi_ssid_settings, bridge_to_lan,
         "Unable to add bridge_to_lan flag"),
    SHOW("rebind_protection", DUMP_BOOL, wifi_ssid_settings, rebind_protection,
         "Unable to add rebind_protection flag"),
    SHOW("safecheck_enable", DUMP_BOOL, wifi_ssid_settings, safecheck_enable,
         "Unable to add safecheck_enable flag"),
    SHOW("roaming_domain", DUMP_STRING, wifi_ssid_settings, roaming_domain,
         "Unable to add roaming domain"),
    SHOW("roaming_key", DUMP_STRING, wifi_ssid_settings, roaming_key, "Unable to add roaming key"),
    SHOW("hidden", DUMP_BOOL, wifi_ssid_settings, hidden, "Unable to add hidden flag"),
    SHOW("neigh_report", DUMP_BOOL, wifi_ssid_settings, neigh_report,
         "Unable to add neigh_report flag"),
    SHOW("band_steering", DUMP_BOOL, wifi_ssid_settings, band_steering,
         "Unable to add band_steering flag"),
    SHOW("anyip", DUMP_BOOL, wifi_ssid_settings, anyip, "Unable to add anyip flag"),
    SHOW("lan_block", DUMP_BOOL, wifi_ssid_settings, lan_block, "Unable to add lan_block flag"),
    SHOW("client_isolate", DUMP_BOOL, wifi_ssid_settings, client_isolate,
         "Unable to add client_isolate flag"),
    SHOW("smtp_redir", DUMP_STRING, wifi_ssid_settings, smtp_redir, "Unable to add smtp redirect"),
    SHOW("dns_intercept", DUMP_BOOL, wifi_ssid_settings, dns_intercept,
         "Unable to add dns_intercept flag"),
    SHOW_BY_CODE("dns_servers", dump_dns_servers, "Unable to add dns servers"),
    SHOW_BY_CODE("acl_list", dump_acl_list, "Unable to add acl entries"),
    SHOW_BY_CODE("bands", dump_bands, "Unable to add bands"),
    SHOW_BY_CODE("dhcp", dump_dhcp, "Unable to add dhcp settings"),
    SHOW("shaping_enable", DUMP_BOOL, wifi_ssid_settings, shaping_enable,
         "Unable to add shaping_enable flag"),
};

void wifi_dump_ssid_settings(blob_buf *buf, const wifi_ssid_settings &ssid, int index,
                             bool include_secrets)
{
    const nest table(buf, "ssid", false);
    if (!table)
        return;
    if (blobmsg_add_u32(buf, "index", static_cast<uint32_t>(index)) != 0)
        log_info("Unable to add ssid index");
    if (blobmsg_add_u8(buf, "enable", ssid.enable) != 0)
        log_info("Unable to add ssid enable flag");
    if (ssid.enable)
        dump_rows(buf, SSID_ROWS, &ssid, include_secrets);
}

// Shown of an enabled radio, after its index, enable and band.
constexpr dump_row RADIO_ROWS[] = {
    SHOW("channel", DUMP_INT, wifi_radio_settings, channel, "Unable to add radio channel"),
    SHOW("mode", DUMP_STRING, wifi_radio_settings, htmode, "Unable to add radio mode"),
    SHOW("txpower", DUMP_INT, wifi_radio_settings, txpower, "Unable to add radio txpower"),
    SHOW("rtscts", DUMP_INT, wifi_radio_settings, rtscts, "Unable to add radio rtscts"),
    SHOW("disable_lower_rates", DUMP_INT, wifi_radio_settings, disable_lower_rates,
         "Unable to add radio disable_lower_rates"),
    SHOW("mesh_enable", DUMP_BOOL, wifi_radio_settings, mesh_enable,
         "Unable to add radio mesh_enable flag"),
};

void wifi_dump_radio_settings(blob_buf *buf, const wifi_radio_settings &radio, int index,
                              const char *band)
{
    const nest table(buf, "radio", false);
    if (!table)
        return;
    if (blobmsg_add_u32(buf, "index", static_cast<uint32_t>(index)) != 0)
        log_info("Unable to add radio index");
    if (blobmsg_add_u8(buf, "enable", radio.enable != 0) != 0)
        log_info("Unable to add radio enable flag");
    if (blobmsg_add_string(buf, "band", band) != 0)
        log_info("Unable to add radio band");
    if (radio.enable)
        dump_rows(buf, RADIO_ROWS, &radio, false);
}

constexpr dump_row BATMAN_ROWS[] = {
    SHOW("hop_penalty", DUMP_INT, wifi_settings, hop_penalty, "Unable to add hop_penalty"),
    SHOW("gw_stickiness", DUMP_INT, wifi_settings, gw_stickiness, "Unable to add gw_stickiness"),
    SHOW("bridge_loop_avoidance", DUMP_BOOL, wifi_settings, bridge_loop_avoidance,
         "Unable to add bridge_loop_avoidance flag"),
};

int dump_batman(blob_buf *buf, const void *record, bool include_secrets)
{
    if (const nest table(buf, "batman", false); table)
        dump_rows(buf, BATMAN_ROWS, record, include_secrets);
    return 0;
}

constexpr dump_row MESH_ROWS[] = {
    SHOW("protocol", DUMP_STRING, wifi_settings, mesh_protocol, "Unable to add mesh protocol"),
    SHOW_BY_CODE("batman", dump_batman, "Unable to add batman settings"),
    SHOW_SECRET("key", wifi_settings, mesh_key, "Unable to add mesh key"),
};

int wifi_dump_mesh_settings(blob_buf *buf, const void *record, bool include_secrets)
{
    if (const nest table(buf, "mesh", false); table)
        dump_rows(buf, MESH_ROWS, record, include_secrets);
    return 0;
}

int dump_dfs_channels(blob_buf *buf, const void *record, bool)
{
    const auto *settings = static_cast<const wifi_settings *>(record);
    if (!settings->dfs_enable)
        return 0;
    const nest array(buf, "dfs_channels", true);
    int result = 0;
    for (int i = 0; array && i < settings->dfs_channel_count; i++)
        result |= blobmsg_add_u32(buf, "channel", static_cast<uint32_t>(settings->dfs_channels[i]));
    return result;
}

int dump_ssids(blob_buf *buf, const void *record, bool include_secrets)
{
    const auto *settings = static_cast<const wifi_settings *>(record);
    const nest array(buf, "ssids", true);
    for (int i = 0; array && i < WIFI_SSIDS; i++)
        wifi_dump_ssid_settings(buf, settings->ssids[i], i + 1, include_secrets);
    return 0;
}

int dump_radios(blob_buf *buf, const void *record, bool)
{
    const auto *settings = static_cast<const wifi_settings *>(record);
    const nest array(buf, "radios", true);
    const int radios = wifi_radio_count();
    for (int i = 0; array && i < radios; i++) {
        const int band = wifi_radio_band_type(i);
        if (band >= 0)
            wifi_dump_radio_settings(buf, settings->radios[i], i, wifi_band_name(band));
    }
    return 0;
}

int dump_presence_interval(blob_buf *buf, const void *record, bool)
{
    const auto *settings = static_cast<const wifi_settings *>(record);
    if (!settings->presence_enable)
        return 0;
    return blobmsg_add_u32(buf, "presence_interval",
                           static_cast<uint32_t>(settings->presence_interval));
}

int dump_orphan_connect_radio(blob_buf *buf, const void *record, bool)
{
    const auto *settings = static_cast<const wifi_settings *>(record);
    const char *band = platform_wireless_get_radio_band_name(settings->orphan_connect_radio);
    return band ? blobmsg_add_string(buf, "orphan_connect_radio", band) : -1;
}

int dump_antenna_type(blob_buf *buf, const void *record, bool)
{
    static constexpr const char *NAMES[] = {"Internal", "dipole", "patch"};
    const int type = static_cast<const wifi_settings *>(record)->antenna_type;
    return blobmsg_add_string(buf, "antenna_type", NAMES[type == 1 || type == 2 ? type : 0]);
}

constexpr dump_row TOP_ROWS[] = {
    SHOW("enable", DUMP_BOOL, wifi_settings, enable, "Unable to add wifi enable flag"),
    SHOW("ap_scan", DUMP_BOOL, wifi_settings, ap_scan, "Unable to add ap_scan flag"),
    SHOW("delayed", DUMP_BOOL, wifi_settings, delayed, "Unable to add delayed flag"),
    SHOW("save_orphans", DUMP_BOOL, wifi_settings, save_orphans, "Unable to add save_orphans flag"),
    SHOW("radio_override", DUMP_STRING, wifi_settings, radio_override,
         "Unable to add radio_override nonce"),
    SHOW("override_reason", DUMP_STRING, wifi_settings, override_reason,
         "Unable to add override_reason"),
    SHOW("reg_outdoor", DUMP_BOOL, wifi_settings, reg_outdoor, "Unable to add outdoor AP flag"),
    SHOW("reg_country", DUMP_STRING, wifi_settings, reg_country, "Unable to add country"),
    SHOW("dfs_enable", DUMP_BOOL, wifi_settings, dfs_enable, "Unable to add dfs_enable flag"),
    SHOW("dpi_enable", DUMP_BOOL, wifi_settings, dpi_enable, "Unable to add dpi_enable flag"),
    SHOW_BY_CODE("dfs_channels", dump_dfs_channels, "Unable to add dfs channels"),
    SHOW_BY_CODE("ssids", dump_ssids, "Unable to add ssids"),
    SHOW_BY_CODE("radios", dump_radios, "Unable to add radios"),
    SHOW_BY_CODE("mesh", wifi_dump_mesh_settings, "Unable to add mesh settings"),
    SHOW("presence_enable", DUMP_BOOL, wifi_settings, presence_enable,
         "Unable to add presence_enable flag"),
    SHOW_BY_CODE("presence_interval", dump_presence_interval, "Unable to add presence_interval"),
    SHOW("node_id", DUMP_INT, wifi_settings, node_id, "Unable to add node_id"),
    SHOW("wired_client_ssid", DUMP_INT, wifi_settings, wired_client_ssid,
         "Unable to add wired_client_ssid"),
    SHOW("disable_wired_client", DUMP_BOOL, wifi_settings, disable_wired_client,
         "Unable to add disable_wired_client flag"),
    SHOW("orphan_connect_bssid", DUMP_STRING, wifi_settings, orphan_connect_bssid,
         "Unable to add orphan_connect_bssid"),
    SHOW_BY_CODE("orphan_connect_radio", dump_orphan_connect_radio,
                 "Unable to add orphan_connect_radio"),
    SHOW("scanning_period", DUMP_INT, wifi_settings, scanning_period,
         "Unable to add scanning_period"),
    SHOW("scanning_phy", DUMP_INT, wifi_settings, scanning_phy, "Unable to add scanning_phy"),
    SHOW_BY_CODE("antenna_type", dump_antenna_type, "Unable to add antenna_type"),
    SHOW("recover_config_errors", DUMP_BOOL, wifi_settings, recover_config_errors,
         "Unable to add recover_config_errors flag"),
};

#undef SHOW
#undef SHOW_SECRET
#undef SHOW_BY_CODE

} // namespace

int wifi_dump_settings(blob_buf *buf, const wifi_settings *settings, bool include_secrets)
{
    if (!buf || !settings) {
        log_error("%s is NULL", buf ? "settings" : "buf");
        return -1;
    }
    dump_rows(buf, TOP_ROWS, settings, include_secrets);
    return 0;
}
