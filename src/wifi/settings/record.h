// The wireless settings: one flat record of plain values, copied whole.
//
// The live record belongs to wifi/wifi.cpp; a settings document is parsed into a copy, and only the
// settings writer puts a copy in its place. Texts are always terminated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

constexpr int WIFI_RADIOS_MAX = 3;
constexpr int WIFI_SSIDS = 4; ///< slots; numbered 1..4 in UCI names, 0..3 here
constexpr int WIFI_DNS_SERVERS_MAX = 4;
constexpr int WIFI_ACL_MAX = 1024;
constexpr int WIFI_DFS_CHANNELS_MAX = 64;

/// Band types: an index into wifi_settings' `bands`, named by wifi_band_name().
enum wifi_band_type : int32_t {
    WIFI_BAND_2GHZ,
    WIFI_BAND_5GHZ_LOW,
    WIFI_BAND_5GHZ_HIGH,
    WIFI_BAND_5GHZ,
    WIFI_BAND_SCANNING, ///< the dedicated scanning radio
    WIFI_BANDS,
};

struct wifi_band_settings {
    uint32_t enable; ///< 0 or 1
    char ssid[33];   ///< empty: the SSID's own name
};

struct wifi_dhcp_settings {
    bool enable;
    char gateway_ip[16];
    char netmask[16];
    char relay[16];
    int32_t start;
    int32_t num_leases;
    char lease_len[16];
};

struct wifi_ssid_settings {
    bool configured; ///< its element of a settings document was taken
    bool enable;
    char ssid[33];
    char key[128];
    char enc[32];
    char radius_server[128];
    char radius_key[128];
    int32_t radius_port;
    int32_t vlan_tag; ///< 1..4095 a VLAN id, negative none
    bool bridge_to_lan;
    bool rebind_protection;
    char roaming_domain[5]; ///< four hex digits
    char roaming_key[65];   ///< 64 hex digits
    char radius_acct_server[128];
    char radius_acct_key[128];
    int32_t radius_acct_port;
    bool hidden;
    bool neigh_report;
    bool anyip;
    bool lan_block;
    bool client_isolate;
    char smtp_redir[128];
    char dns_servers[WIFI_DNS_SERVERS_MAX][128]; ///< up to the first empty one
    bool dns_intercept;
    char acl_list[WIFI_ACL_MAX][18]; ///< up to the first empty one
    wifi_band_settings bands[WIFI_BANDS];
    wifi_dhcp_settings dhcp;
    bool band_steering;
    bool roaming_80211v;
    bool shaping_enable; ///< not part of a settings document
    bool safecheck_enable;
};

struct wifi_radio_settings {
    uint32_t enable; ///< 0 or 1
    uint32_t channel;
    char htmode[16];
    int32_t txpower; ///< dBm
    int32_t rtscts;  ///< bytes
    int32_t disable_lower_rates;
    bool mesh_enable;
};

struct wifi_settings {
    bool enable;
    bool ap_scan;
    bool delayed; ///< hold radio changes back until the push is confirmed
    bool save_orphans;
    bool reg_outdoor;
    char reg_country[3];
    bool dfs_enable;
    int32_t dfs_channels[WIFI_DFS_CHANNELS_MAX];
    int32_t dfs_channel_count;
    wifi_ssid_settings ssids[WIFI_SSIDS];
    wifi_radio_settings radios[WIFI_RADIOS_MAX]; ///< by platform radio index
    char mesh_protocol[12];
    int32_t hop_penalty;
    int32_t gw_stickiness;
    bool bridge_loop_avoidance;
    char mesh_key[128];
    char radio_override[128]; ///< nonce of the local radio override; empty: none in force
    char override_reason[32];
    int32_t node_id; ///< negative: none
    char orphan_connect_bssid[32];
    int32_t orphan_connect_radio;
    int32_t scanning_period; ///< seconds
    bool presence_enable;
    int32_t presence_interval;
    int32_t antenna_type; ///< 0 internal, 1 dipole, 2 patch

    // Never set by a settings document; shown by the state dump.
    bool dpi_enable;
    int32_t wired_client_ssid;
    bool disable_wired_client;
    int32_t scanning_phy;
    bool recover_config_errors;
};

static_assert(sizeof(bool) == 1);
static_assert(std::is_trivially_copyable_v<wifi_settings>, "the record is copied as memory");

// Most of the record are lists of client addresses, which are mostly empty, and a page of zeros
// that was never written to takes no memory. So these two write only where something changes.

void wifi_settings_copy(wifi_settings *to, const wifi_settings &from);
/// Zeroes a part of a record.
void wifi_settings_zero(void *part, size_t size);
