// Direct stage, radios: rates and power, orphan interfaces, access points, presence.
#include <cstring>
#include <initializer_list>
#include <net/if.h>

#include "platform/zu/ng_uci.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/fields_uci.h"
#include "wifi/write/orphan_key.h"
#include "wifi/write/write_internal.h"

static void clear_options(const std::string &section, std::initializer_list<const char *> options)
{
    for (const char *option : options)
        ng_uci_clear(section + "." + option);
}

// ---- rates, in kbit/s; by disable_lower_rates

struct rate_set {
    int32_t disable_lower_rates;
    std::initializer_list<const char *> supported, basic;
    const char *multicast;
};

static const rate_set *find_rates(int32_t disable_lower_rates)
{
    static constexpr rate_set SETS[] = {
        {1, {"24000", "36000", "48000", "54000"}, {"24000"}, "24000"},
        {2,
         {"6000", "9000", "12000", "18000", "24000", "36000", "48000", "54000"},
         {"6000", "12000", "24000"},
         "6000"},
    };
    for (const rate_set &set : SETS)
        if (set.disable_lower_rates == disable_lower_rates)
            return &set;
    return nullptr;
}

static void write_rates(const wifi_radio_settings &settings, int radio)
{
    const std::string section = numbered("wireless.radio", radio);
    const std::string mesh = numbered("wireless.mesh", radio);
    clear_options(section, {"supported_rates", "basic_rate"});
    clear_options(mesh, {"mesh_basic_rates"});
    const rate_set *rates = find_rates(settings.disable_lower_rates);
    if (!rates)
        return;
    for (const char *rate : rates->supported)
        ng_uci_add(section + ".supported_rates", rate);
    for (const char *rate : rates->basic) {
        ng_uci_add(section + ".basic_rate", rate);
        ng_uci_add(mesh + ".mesh_basic_rates", rate);
    }
}

// ---- orphans

static void put_orphan_key(const std::string &section, const char *bssid)
{
    std::string key;
    if (wifi_generate_orphan_key(bssid, &key) == 0)
        ng_uci_put(section + ".key", key.c_str());
}

static void write_orphan(const wifi_settings &settings, int radio)
{
    const std::string section = numbered("wireless.orphan", radio);
    ng_uci_put(section + ".enable", settings.save_orphans);
    std::string bssid;
    if (settings.save_orphans && ng_uci_get_string(bssid, "%s.macaddr", section.c_str()) == 0)
        put_orphan_key(section, bssid.c_str());
}

static void write_orphan_connect(const wifi_settings &settings, int radio)
{
    const std::string section = numbered("wireless.orph_conn", radio);
    if (settings.orphan_connect_bssid[0] && settings.orphan_connect_radio == radio) {
        put_orphan_key(section, settings.orphan_connect_bssid);
        ng_uci_put(section + ".bssid", settings.orphan_connect_bssid);
        ng_uci_put(section + ".enable", 1);
        return;
    }
    clear_options(section, {"key", "bssid"});
    ng_uci_put(section + ".enable", 0);
}

// ---- access points

static bool is(const char *text, const char *other)
{
    return strcmp(text, other) == 0;
}

/// The value, or with a null value no option.
static void put_or_clear(const std::string &name, const char *value)
{
    if (value)
        ng_uci_put(name, value);
    else
        ng_uci_clear(name);
}

static void write_encryption(const std::string &ap, const wifi_ssid_settings &settings)
{
    const bool wpa3 = is(settings.enc, "wpa3");
    const bool psk = is(settings.enc, "psk-mixed") || is(settings.enc, "psk2");
    put_or_clear(ap + ".ieee80211w_mgmt_cipher", wpa3 ? "BIP-GMAC-256" : nullptr);
    ng_uci_put(ap + ".ft_psk_generate_local", psk);
    ng_uci_put(ap + ".ft_over_ds", !wpa3);
}

/// Fast transition. Without a domain or a key nothing of an earlier one stays in force.
static void write_roaming(const std::string &ap, const wifi_ssid_settings &settings, int ssid)
{
    const bool roams = settings.roaming_domain[0] != '\0';
    char bridge[IFNAMSIZ];
    wifi_dest_ssid_bridge(settings, ssid, bridge);
    ng_uci_put(ap + ".ieee80211r", roams);
    ng_uci_put(ap + ".mobility_domain", settings.roaming_domain);
    put_or_clear(ap + ".ft_auth_bridge", roams ? bridge : nullptr);
    if (settings.roaming_key[0]) {
        ng_uci_put(ap + ".r0kh", (WIFI_R0KH_PREFIX + std::string(settings.roaming_key)).c_str());
        ng_uci_put(
            ap + ".r1kh",
            ("00:00:00:00:00:00,00:00:00:00:00:00," + std::string(settings.roaming_key)).c_str());
    } else {
        clear_options(ap, {"r0kh", "r1kh"});
    }
}

static void write_access_list(const std::string &ap, const std::vector<std::string> &addresses)
{
    if (addresses.empty()) {
        clear_options(ap, {"macfilter", "maclist"});
        return;
    }
    ng_uci_put(ap + ".macfilter", "allow");
    ng_uci_put_list(ap + ".maclist", addresses);
}

static void write_access_point(const wifi_write &w, int radio, int ssid)
{
    const wifi_ssid_settings &settings = w.settings->ssids[ssid - 1];
    const char *band_name = settings.bands[w.bands[radio]].ssid;
    const std::string ap = wifi_ap_section(radio, ssid);
    ng_uci_put(ap + ".ssid", band_name[0] ? band_name : settings.ssid);
    fields_write(wifi_ssid_part(*w.settings, ssid, radio), "wireless.ap%d_%d");
    write_encryption(ap, settings);
    write_roaming(ap, settings, ssid);
    write_access_list(ap, w.access_lists[ssid - 1]);
    const rate_set *rates = find_rates(w.settings->radios[radio].disable_lower_rates);
    put_or_clear(ap + ".mcast_rate", rates ? rates->multicast : nullptr);
    for (const char *option : {".acl_accept_notify", ".acl_deny_notify"})
        ng_uci_put(ap + option, settings.safecheck_enable);
}

/// The first access point of the radio also hears presence probes.
static void write_access_points(const wifi_write &w, int radio)
{
    bool first = true;
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        if (!w.settings->ssids[ssid - 1].configured || !wifi_write_ssid_is_active(w, radio, ssid))
            continue;
        write_access_point(w, radio, ssid);
        if (first)
            ng_uci_add("prequestd.prequestd.interface",
                       numbered("ap", radio, "_") + std::to_string(ssid));
        first = false;
    }
}

// ---- radios

/// The scanning radio belongs to u80211d: the daemon puts no interface on it.
static void write_scanning_radio(const wifi_settings &settings, int radio)
{
    for (const char *section : {"radio", "mesh", "orphan", "orph_conn"})
        ng_uci_clear(std::string("wireless.") + section + std::to_string(radio));
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++)
        ng_uci_clear(wifi_ap_section(radio, ssid));
    fields_write(wifi_node_part(settings, -1, -1), "u80211d.global");
    ng_uci_put("u80211d.global.scan_phy", radio);
}

static void write_radio(const wifi_write &w, int radio)
{
    fields_write(wifi_radio_part(*w.settings, radio), "wireless.radio%d");
    ng_uci_put(numbered("wireless.radio", radio, ".noscan"),
               !w.settings->ap_scan); // 1: no document switches ap_scan on
    write_rates(w.settings->radios[radio], radio);
    write_orphan(*w.settings, radio);
    write_orphan_connect(*w.settings, radio);
    write_access_points(w, radio);
}

void wifi_write_radios(const wifi_write &w)
{
    fields_write(wifi_node_part(*w.settings, -1, -1), "prequestd.prequestd");
    ng_uci_clear("prequestd.prequestd.interface");
    for (int radio = 0; radio < w.radios; radio++) {
        ng_uci_clear(numbered("wireless.mesh", radio, ".pre_config"));
        if (wifi_write_is_scanning(w, radio))
            write_scanning_radio(*w.settings, radio);
        else if (w.settings->radios[radio].enable != 0) // one that is off keeps what it has
            write_radio(w, radio);
    }
}
