// Judging an entry, putting its texts into UTF-8, and naming its band, width and encryption.
#include "wifi/radio/scan_result.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"

enum bss_member {
    BSS_BAND,
    BSS_CHANNEL,
    BSS_HT,
    BSS_HT_CHANNELS,
    BSS_VHT,
    BSS_VHT_CHANNELS,
    BSS_HE,
    BSS_HE_CHANNELS,
    BSS_SSID,
    BSS_BSSID,
    BSS_CRYPTO,
    BSS_WPA_VERSION,
    BSS_AUTH_SUITES,
    BSS_CIPHER,
    BSS_MBM,
    BSS_WIFI_MODES,
    BSS_MEMBERS,
};

constexpr blobmsg_policy BSS_POLICY[BSS_MEMBERS] = {
    {"band", BLOBMSG_TYPE_STRING},        {"channel", BLOBMSG_TYPE_INT32},
    {"ht", BLOBMSG_TYPE_STRING},          {"ht_channels", BLOBMSG_TYPE_ARRAY},
    {"vht", BLOBMSG_TYPE_STRING},         {"vht_channels", BLOBMSG_TYPE_ARRAY},
    {"he", BLOBMSG_TYPE_STRING},          {"he_channels", BLOBMSG_TYPE_ARRAY},
    {"ssid", BLOBMSG_TYPE_STRING},        {"bssid", BLOBMSG_TYPE_STRING},
    {"crypto", BLOBMSG_TYPE_INT16},       {"wpa_version", BLOBMSG_TYPE_INT16},
    {"auth_suites", BLOBMSG_TYPE_STRING}, {"cipher", BLOBMSG_TYPE_STRING},
    {"mbm", BLOBMSG_TYPE_STRING},         {"wifi_modes", BLOBMSG_TYPE_STRING},
};

struct bss_entry {
    blob_attr *members[BSS_MEMBERS];
    const char *ifname;
    blob_attr *operator[](bss_member member) const { return members[member]; }
    std::string_view text(bss_member member) const
    {
        return {blobmsg_get_string(members[member]), blobmsg_data_len(members[member]) - 1};
    }
    const char *bssid() const { return blobmsg_get_string(members[BSS_BSSID]); }
};

// ---- text

/// Bytes of the UTF-8 character that `text` begins with, 0 when it begins with none: neither longer
/// than need be, nor half of a pair, nor beyond Unicode.
static size_t utf8_length(std::string_view text)
{
    struct lead {
        uint8_t first, last, second_first, second_last;
        size_t length;
    };
    constexpr lead LEADS[] = {
        {0x00, 0x7f, 0, 0, 1},       {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
        {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
        {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
    };
    const auto at = [text](size_t i) { return static_cast<uint8_t>(text[i]); };
    for (const lead &row : LEADS) {
        if (at(0) < row.first || at(0) > row.last)
            continue;
        if (text.size() < row.length ||
            (row.length > 1 && (at(1) < row.second_first || at(1) > row.second_last)))
            return 0;
        for (size_t i = 2; i < row.length; i++)
            if ((at(i) & 0xc0) != 0x80)
                return 0;
        return row.length;
    }
    return 0;
}

static bool is_plain(std::string_view text, size_t length)
{
    if (length != 1)
        return length != 0;
    const auto byte = static_cast<uint8_t>(text[0]);
    return byte >= 0x20 && byte != 0x7f && !text.starts_with("\\x");
}

/// Bytes that `text` begins with and that need no second look: nearly always all of it.
static size_t ordinary_length(std::string_view text)
{
    const auto *end = std::find_if(text.begin(), text.end(),
                                   [](char c) { return c < ' ' || c > '~' || c == '\\'; });
    return static_cast<size_t>(end - text.begin());
}

// ---- the record's members

static int missing(const bss_entry &bss, const char *name)
{
    log_error("Scan result for bssid '%s' from interface '%s' does not have the '%s' attribute",
              bss.bssid(), bss.ifname, name);
    return -1;
}

/// 0 for a member that was added; else says so.
static int added(int result, const bss_entry &bss, const char *name)
{
    if (result == 0)
        return 0;
    log_error("Failed to add '%s' to scan result report for bssid '%s' from interface '%s'", name,
              bss.bssid(), bss.ifname);
    return -1;
}

static int add_text(blob_buf *record, const bss_entry &bss, bss_member member, const char *name)
{
    if (!bss[member])
        return missing(bss, BSS_POLICY[member].name);
    const std::string_view text = bss.text(member);
    const std::string shown = wifi_scan_text(text.data(), text.size());
    return added(blobmsg_add_string(record, name, shown.c_str()), bss, name);
}

static int copy_channels_array(blob_buf *record, blob_attr *source)
{
    void *array = blobmsg_open_array(record, "channels");
    if (!array) {
        log_error("Unable to open 'channels' array in destination blob_buf");
        return -1;
    }
    bool copied = blobmsg_check_array(source, BLOBMSG_TYPE_INT32) >= 0;
    blob_attr *channel;
    size_t rest;
    if (copied)
        blobmsg_for_each_attr(channel, source, rest) copied =
            copied && blobmsg_add_u32(record, nullptr, blobmsg_get_u32(channel)) == 0;
    blobmsg_close_array(record, array);
    if (!copied)
        log_error("Unable to copy source channels array into destination channels array");
    return copied ? 0 : -1;
}

static int add_width(blob_buf *record, const bss_entry &bss, uint32_t width_mhz)
{
    return added(blobmsg_add_u32(record, "channel_width", width_mhz), bss, "channel_width");
}

/// A mode that names its width in MHz; "80+80" is 160.
static int add_wide(blob_buf *record, const bss_entry &bss, bss_member mode, bss_member channels,
                    const char *mode_name)
{
    const std::string_view text = bss.text(mode);
    int width = 0;
    if (text.starts_with("80+80"))
        width = 160;
    else
        (void)std::from_chars(text.data(), text.data() + text.size(), width);
    if (width < 1) {
        log_error("Failed to recover %s channel width from scan result for bssid '%s' from "
                  "interface '%s'",
                  mode_name, bss.bssid(), bss.ifname);
        return -1;
    }
    if (add_width(record, bss, static_cast<uint32_t>(width)) != 0)
        return -1;
    return copy_channels_array(record, bss[channels]);
}

static int add_base_channel(blob_buf *record, const bss_entry &bss)
{
    if (add_width(record, bss, 20) != 0)
        return -1;
    if (!bss[BSS_CHANNEL]) {
        log_error("scan result from bssid '%s' from interface '%s' did not contain a base channel",
                  bss.bssid(), bss.ifname);
        return -1;
    }
    void *array = blobmsg_open_array(record, "channels");
    if (!array || blobmsg_add_u32(record, nullptr, blobmsg_get_u32(bss[BSS_CHANNEL])) != 0)
        return added(-1, bss, "channels");
    blobmsg_close_array(record, array);
    return 0;
}

/// The newest mode counts for which the result lists channels.
static int parse_channel_array_and_width(blob_buf *record, const bss_entry &bss)
{
    if (bss[BSS_HE] && bss[BSS_HE_CHANNELS])
        return add_wide(record, bss, BSS_HE, BSS_HE_CHANNELS, "HE");
    if (bss[BSS_VHT] && bss[BSS_VHT_CHANNELS])
        return add_wide(record, bss, BSS_VHT, BSS_VHT_CHANNELS, "VHT");
    if (!bss[BSS_HT] || !bss[BSS_HT_CHANNELS])
        return add_base_channel(record, bss);
    if (add_width(record, bss, bss.text(BSS_HT).starts_with("40") ? 40 : 20) != 0)
        return -1;
    return copy_channels_array(record, bss[BSS_HT_CHANNELS]);
}

static int add_encryption(blob_buf *record, const bss_entry &bss)
{
    // WPA wins over the privacy flag, which WPA networks set as well. Four characters at most.
    std::string text = "NONE";
    if (bss[BSS_WPA_VERSION])
        text = ("WPA" + std::to_string(blobmsg_get_u16(bss[BSS_WPA_VERSION]))).substr(0, 4);
    else if (bss[BSS_CRYPTO] && blobmsg_get_u16(bss[BSS_CRYPTO]) != 0)
        text = "WEP";
    return added(blobmsg_add_string(record, "encryption", text.c_str()), bss, "encryption");
}

static int add_signal(blob_buf *record, const bss_entry &bss)
{
    if (!bss[BSS_MBM])
        return missing(bss, "mbm");
    const std::string_view text = bss.text(BSS_MBM);
    double mbm = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), mbm);
    // "inf" and "nan" are numbers to the conversion, but not to JSON.
    const bool is_number = error == std::errc() && std::isfinite(mbm);
    return added(is_number ? blobmsg_add_double(record, "signal", mbm) : -1, bss, "signal");
}

/// False (logged) for an entry with a text that no access point sends.
static bool texts_are_short(const bss_entry &bss)
{
    for (int i = 0; i < BSS_MEMBERS; i++) {
        const auto member = static_cast<bss_member>(i);
        if (BSS_POLICY[i].type != BLOBMSG_TYPE_STRING || !bss[member] ||
            bss.text(member).size() <= SCAN_TEXT_MAX)
            continue;
        log_error("Scan result from interface '%s' has a '%s' of %zu bytes, skipping result",
                  bss.ifname, BSS_POLICY[i].name, bss.text(member).size());
        return false;
    }
    return true;
}

static bool read_entry(blob_attr *attr, bss_entry *bss)
{
    if (!blobmsg_check_attr(attr, false) || blobmsg_type(attr) != BLOBMSG_TYPE_TABLE ||
        !zu_blobmsg_parse(BSS_POLICY, bss->members, attr)) {
        log_error("Unable to parse a scan result from interface '%s'", bss->ifname);
        return false;
    }
    if (!texts_are_short(*bss))
        return false;
    if (!(*bss)[BSS_BSSID])
        log_error("Scan result for interface '%s' does not include a bssid, skipping result",
                  bss->ifname);
    return (*bss)[BSS_BSSID] != nullptr;
}

std::string wifi_scan_text(const char *bytes, size_t length)
{
    std::string shown;
    for (std::string_view rest(bytes, length); !rest.empty();) {
        const size_t ordinary = ordinary_length(rest);
        const size_t next = ordinary != 0 ? ordinary : utf8_length(rest);
        if (ordinary != 0 || is_plain(rest, next)) {
            shown += rest.substr(0, next);
            rest.remove_prefix(next);
            continue;
        }
        char escape[5];
        snprintf(escape, sizeof escape, "\\x%02x", static_cast<uint8_t>(rest[0]));
        shown += escape;
        rest.remove_prefix(1);
    }
    return shown;
}

int wifi_scan_parse_copy_bss_result(blob_attr *attr, const char *ifname, blob_buf *record)
{
    bss_entry bss{{}, ifname};
    if (!read_entry(attr, &bss))
        return -1;
    if (blob_buf_init(record, 0) != 0)
        return added(-1, bss, "band");
    if (add_text(record, bss, BSS_BAND, "band") != 0 ||
        parse_channel_array_and_width(record, bss) != 0 ||
        add_text(record, bss, BSS_SSID, "ssid") != 0 ||
        add_text(record, bss, BSS_BSSID, "bssid") != 0 || add_encryption(record, bss) != 0 ||
        add_signal(record, bss) != 0 || add_text(record, bss, BSS_WIFI_MODES, "wifi_mode") != 0)
        return -1;
    return 0;
}
