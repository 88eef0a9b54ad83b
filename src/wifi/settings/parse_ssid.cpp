// One element of `ssids`: the network of one slot, with its bands, clients and addresses.

#include <cstring>

#include "platform/zu/log.h"
#include "wifi/settings/log_json.h"
#include "wifi/settings/parse.h"
#include "wifi/settings/parse_internal.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

static bool wifid_parse_band_data(blob_attr *table, wifi_ssid_settings *ssid)
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

static bool wifid_parse_bands(blob_attr *array, wifi_ssid_settings *ssid)
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

/// An empty name server stays: it ends the list.
static bool is_kept(const settings_limits &limits, const char *text)
{
    if (settings_text_fault(limits, text) != SETTINGS_MALFORMED)
        return true;
    log_notice("Got incorrect format for acl '%s'", text); // no other list asks for a form
    return false;
}

/// Copies the STRING elements that may be kept, until `slots` is full.
template <size_t Slots, size_t Size>
static void parse_strings(const settings_values &values, const char *key,
                          char (&slots)[Slots][Size])
{
    blob_attr *array = values.get(key);
    if (!array)
        return;
    const settings_limits &limits = *settings_row(*values.level, key).limits;
    wifi_settings_zero(slots, sizeof(slots));
    size_t count = 0;
    blob_attr *element;
    size_t rest;
    blobmsg_for_each_attr(element, array, rest)
    {
        if (count == Slots)
            return;
        if (blobmsg_type(element) == BLOBMSG_TYPE_STRING &&
            is_kept(limits, blobmsg_get_string(element)))
            settings_store_text(slots[count++], Size, blobmsg_get_string(element));
    }
}

static bool wifid_parse_dhcp(blob_attr *table, wifi_dhcp_settings *dhcp)
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

static bool parse_ssid_lists(const settings_values &values, wifi_ssid_settings *ssid, int slot)
{
    blob_attr *bands = values.get("bands");
    if (bands && !wifid_parse_bands(bands, ssid)) {
        log_error("Failed to parse band, ssid_idx = %d", slot);
        return false;
    }
    parse_strings(values, "access_control_list", ssid->acl_list);
    parse_strings(values, "dns_servers", ssid->dns_servers);
    blob_attr *dhcp = values.get("dhcp");
    if (dhcp && !wifid_parse_dhcp(dhcp, &ssid->dhcp)) {
        log_error("Failed to parse DHCP settings, ssid_idx = %d", slot);
        return false;
    }
    return true;
}

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
    if (!values.fits("index")) {
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
