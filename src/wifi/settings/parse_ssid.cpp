// One element of `ssids`: the network of one slot, with its bands, clients and addresses.

#include "platform/zu/log.h"
#include "wifi/settings/log_json.h"
#include "wifi/settings/parse.h"
#include "wifi/settings/parse_internal.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

#include <cstring>

namespace {

bool wifid_parse_band_data(blob_attr *table, wifi_ssid_settings *ssid)
{
    settings_values values;
    if (!settings_parse_level(SETTINGS_BAND, table, &values))
        return false;
    blob_attr *band = values.get("band");
    if (!band) {
        log_error("bands array object doesn't contain a 'band' member");
        return false;
    }
    const char *name = blobmsg_get_string(band);
    const int type = wifid_find_band_by_type(name);
    if (type < 0 || wifid_find_radio(type) < 0) {
        log_error("Invalid band: %d:%s", type, name);
        return false;
    }
    settings_store(values, &ssid->bands[type]);
    return true;
}

bool wifid_parse_bands(blob_attr *array, wifi_ssid_settings *ssid)
{
    settings_log_json(SETTINGS_BAND, array);
    blob_attr *element;
    size_t rest;
    blobmsg_for_each_attr(element, array, rest)
    {
        if (!wifid_parse_band_data(element, ssid))
            return false;
    }
    return true;
}

// Copies the accepted STRING elements of an array into `slots` texts of `size` bytes, until full.
void take_strings(blob_attr *array, char *texts, int slots, size_t size,
                  bool (*accepted)(const char *))
{
    memset(texts, 0, static_cast<size_t>(slots) * size);
    int count = 0;
    blob_attr *element;
    size_t rest;
    blobmsg_for_each_attr(element, array, rest)
    {
        if (count == slots)
            return;
        if (blobmsg_type(element) != BLOBMSG_TYPE_STRING)
            continue;
        const char *text = blobmsg_get_string(element);
        if (!accepted(text))
            continue;
        settings_store_text(texts + static_cast<size_t>(count) * size, size, text);
        count++;
    }
}

bool is_acl_entry(const char *text)
{
    if (str_is_mac_addr(text))
        return true;
    log_notice("Got incorrect format for acl '%s'", text);
    return false;
}

bool is_any_text(const char *)
{
    return true;
}

bool wifid_parse_dhcp(blob_attr *table, wifi_dhcp_settings *dhcp)
{
    settings_values values;
    if (!settings_parse_level(SETTINGS_DHCP, table, &values))
        return false;
    blob_attr *enable = values.get("enable");
    if (!enable) {
        log_error("Unable to get DHCP enable");
        return false;
    }
    dhcp->enable = blobmsg_get_u8(enable) != 0;
    if (dhcp->enable)
        settings_store(values, dhcp);
    else
        dhcp->relay[0] = '\0'; // the addresses stay, for when it is enabled again
    return true;
}

bool parse_ssid_lists(const settings_values &values, wifi_ssid_settings *ssid, int slot)
{
    blob_attr *bands = values.get("bands");
    if (bands && !wifid_parse_bands(bands, ssid)) {
        log_error("Failed to parse band, ssid_idx = %d", slot);
        return false;
    }
    if (blob_attr *acl = values.get("access_control_list"))
        take_strings(acl, ssid->acl_list[0], WIFI_ACL_MAX, sizeof(ssid->acl_list[0]), is_acl_entry);
    if (blob_attr *servers = values.get("dns_servers"))
        take_strings(servers, ssid->dns_servers[0], WIFI_DNS_SERVERS_MAX,
                     sizeof(ssid->dns_servers[0]), is_any_text);
    blob_attr *dhcp = values.get("dhcp");
    if (dhcp && !wifid_parse_dhcp(dhcp, &ssid->dhcp)) {
        log_error("Failed to parse DHCP settings, ssid_idx = %d", slot);
        return false;
    }
    return true;
}

} // namespace

bool wifid_parse_ssid(blob_attr *table, wifi_settings *settings)
{
    settings_values values;
    if (!settings_parse_level(SETTINGS_SSID, table, &values))
        return false;
    blob_attr *index = values.get("index");
    if (!index) {
        log_error("Failed to find 'index' key in msg");
        return false;
    }
    // Told as the slot it would be, one less than the document says.
    const int slot = static_cast<int>(blobmsg_get_u32(index) - 1U);
    if (slot < 0 || slot >= WIFI_SSIDS) {
        log_error("Invalid ssid index: %d", slot);
        return false;
    }
    wifi_ssid_settings *ssid = &settings->ssids[slot];
    settings_store(values, ssid);
    if (!parse_ssid_lists(values, ssid, slot))
        return false;
    ssid->configured = true;
    return true;
}
