// One row for each key whose value can be doubted; the walk finds them at any depth.
#include "lint.h"

#include <arpa/inet.h>
#include <cctype>
#include <cstring>
#include <map>

/// What is doubtful about a value in its table; empty: nothing.
using doubt = std::string (*)(const settings_values &table, blob_attr *value);

static std::string quoted(const char *text)
{
    std::string quoted = "\"";
    return quoted.append(text).append("\"");
}

static const char *text_of(const settings_values &table, const char *key)
{
    blob_attr *value = table.get(key);
    return value ? blobmsg_get_string(value) : "";
}

static bool is_one_of(std::string_view words, std::string_view word)
{
    while (!words.empty()) {
        const size_t end = words.find(' ');
        if (words.substr(0, end) == word)
            return true;
        words.remove_prefix(end == words.npos ? words.size() : end + 1);
    }
    return false;
}

static std::string outside(blob_attr *value, int32_t min, int32_t max, const char *what)
{
    const auto number = static_cast<int32_t>(blobmsg_get_u32(value));
    if (number >= min && number <= max)
        return {};
    return std::to_string(number) + " is no " + what;
}

static std::string channel_doubt(const settings_values &radio, blob_attr *value)
{
    const std::string band = text_of(radio, "band");
    const auto channel = static_cast<int32_t>(blobmsg_get_u32(value));
    const bool fits = band == "2.4GHz" ? channel <= 14 : channel > 14 || !band.starts_with("5GHz");
    if (fits || channel < 1) // which is refused
        return {};
    return std::to_string(channel) + " is no channel of the " + band + " band";
}

static std::string mode_doubt(const settings_values &, blob_attr *value)
{
    constexpr std::string_view MODES =
        "NOHT HT20 HT40 HT40+ HT40- VHT20 VHT40 VHT80 VHT160 VHT80+80 "
        "HE20 HE40 HE80 HE160 HE80+80 EHT20 EHT40 EHT80 EHT160 EHT320";
    const char *mode = blobmsg_get_string(value);
    return is_one_of(MODES, mode) ? "" : quoted(mode) + " is no HT mode";
}

static std::string power_doubt(const settings_values &, blob_attr *value)
{
    return outside(value, 0, 40, "transmit power in dBm");
}

static std::string encryption_doubt(const settings_values &, blob_attr *value)
{
    constexpr std::string_view WORDS =
        "none open wep wep-open wep-shared psk psk2 psk3 psk-mixed psk3-mixed sae sae-mixed owe "
        "wpa wpa2 wpa3 wpa-mixed wpa3-mixed wpa3-192";
    const std::string enc = blobmsg_get_string(value);
    // A cipher may follow: "psk2+ccmp".
    if (enc.empty() || is_one_of(WORDS, enc.substr(0, enc.find('+'))))
        return {};
    return quoted(enc.c_str()) + " is no encryption that access points know";
}

static bool is_hex(const std::string &text)
{
    for (const char c : text)
        if (!isxdigit(static_cast<unsigned char>(c)))
            return false;
    return true;
}

static std::string key_doubt(const settings_values &ssid, blob_attr *value)
{
    const std::string enc = text_of(ssid, "enc"), key = blobmsg_get_string(value);
    const bool is_passphrase =
        enc.empty() || enc.starts_with("psk") || enc.starts_with("sae") || enc == "wpa3";
    const bool fits = (key.size() >= 8 && key.size() <= 63) || (key.size() == 64 && is_hex(key));
    if (!is_passphrase || key.empty() || fits)
        return {};
    return "a passphrase has 8 to 63 characters or 64 hex digits, not " +
           std::to_string(key.size());
}

static std::string vlan_doubt(const settings_values &, blob_attr *value)
{
    return outside(value, -1, 4095, "VLAN id"); // -1: none
}

static std::string port_doubt(const settings_values &, blob_attr *value)
{
    return outside(value, 0, 65535, "port"); // 0: the usual one
}

static std::string address_doubt(const settings_values &, blob_attr *value)
{
    const char *text = blobmsg_get_string(value);
    in_addr address;
    return *text == '\0' || inet_pton(AF_INET, text, &address) == 1
               ? ""
               : quoted(text) + " is no IPv4 address";
}

/// ISO 3166-1, and the world's own.
static std::string country_doubt(const settings_values &, blob_attr *value)
{
    constexpr std::string_view COUNTRIES = "00 AD AE AF AG AI AL AM AO AQ AR AS AT AU AW AX AZ BA "
                                           "BB BD BE BF BG BH BI BJ BL BM BN BO BQ BR BS BT BV BW "
                                           "BY BZ CA CC CD CF CG CH CI CK CL CM CN CO CR CU CV CW "
                                           "CX CY CZ DE DJ DK DM DO DZ EC EE EG EH ER ES ET FI FJ "
                                           "FK FM FO FR GA GB GD GE GF GG GH GI GL GM GN GP GQ GR "
                                           "GS GT GU GW GY HK HM HN HR HT HU ID IE IL IM IN IO IQ "
                                           "IR IS IT JE JM JO JP KE KG KH KI KM KN KP KR KW KY KZ "
                                           "LA LB LC LI LK LR LS LT LU LV LY MA MC MD ME MF MG MH "
                                           "MK ML MM MN MO MP MQ MR MS MT MU MV MW MX MY MZ NA NC "
                                           "NE NF NG NI NL NO NP NR NU NZ OM PA PE PF PG PH PK PL "
                                           "PM PN PR PS PT PW PY QA RE RO RS RU RW SA SB SC SD SE "
                                           "SG SH SI SJ SK SL SM SN SO SR SS ST SV SX SY SZ TC TD "
                                           "TF TG TH TJ TK TL TM TN TO TR TT TV TW TZ UA UG UM US "
                                           "UY UZ VA VC VE VG VI VN VU WF WS YE YT ZA ZM ZW";
    const char *country = blobmsg_get_string(value);
    if (strlen(country) != 2 || is_one_of(COUNTRIES, country)) // another length is refused
        return {};
    return quoted(country) + " is no country";
}

static std::string emptiness_doubt(const settings_values &, blob_attr *value)
{
    return blobmsg_len(value) == 0 ? "is empty: nothing is left to be tested" : "";
}

struct lint_row {
    const char *level; ///< the level's name
    const char *key;
    doubt doubt_of;
};

constexpr lint_row ROWS[] = {
    {"regulatory", "country", country_doubt},
    {"radios element", "channel", channel_doubt},
    {"radios element", "mode", mode_doubt},
    {"radios element", "txpower", power_doubt},
    {"ssids element", "enc", encryption_doubt},
    {"ssids element", "key", key_doubt},
    {"ssids element", "vlan_tag", vlan_doubt},
    {"ssids element", "radius_port", port_doubt},
    {"ssids element", "radius_acct_port", port_doubt},
    {"dhcp", "gateway_ip", address_doubt},
    {"dhcp", "netmask", address_doubt},
    {"dhcp", "relay", address_doubt},
    {"inet_test", "targets", emptiness_doubt},
};

/// By which member the elements of a level are distinguished.
constexpr struct {
    const char *level, *key;
} IDENTITIES[] = {
    {"radios element", "band"}, {"ssids element", "index"}, {"bands element", "band"}};

namespace {

struct walk {
    std::vector<finding> findings;

    void add(const std::string &path, const std::string &what)
    {
        findings.push_back({path, what, nullptr, {}});
    }
    void level(const settings_level &level, blob_attr *table, const std::string &path);
    void elements(const settings_level &level, blob_attr *array, const std::string &path);
};

} // namespace

/// The value that tells this element from its neighbours, as bytes; empty where nothing does.
static std::string identity_of(const settings_level &level, blob_attr *element)
{
    settings_values values;
    for (const auto &identity : IDENTITIES) {
        if (strcmp(identity.level, level.name) != 0 ||
            !settings_parse_level(level, element, &values))
            continue;
        if (blob_attr *value = values.get(identity.key))
            return {static_cast<const char *>(blobmsg_data(value)), blobmsg_len(value)};
    }
    return {};
}

void walk::elements(const settings_level &level_of, blob_attr *array, const std::string &path)
{
    std::map<std::string, std::string> seen; // where each was first
    blob_attr *element;
    size_t rest;
    size_t index = 0;
    blobmsg_for_each_attr(element, array, rest)
    {
        const std::string at = path + "[" + std::to_string(index++) + "]";
        const std::string identity = identity_of(level_of, element);
        const auto [first, is_new] = seen.emplace(identity, at);
        if (!identity.empty() && !is_new)
            add(at, "is for the same as " + first->second + ", and comes on top of it");
        level(level_of, element, at);
    }
}

void walk::level(const settings_level &level_of, blob_attr *table, const std::string &path)
{
    settings_values values;
    if (!settings_parse_level(level_of, table, &values))
        return;
    for (size_t i = 0; i < level_of.fields.size(); i++) {
        const settings_field &field = level_of.fields[i];
        blob_attr *value = values.attrs[i];
        if (!value || field.never_read)
            continue;
        const std::string at = path + "." + field.key;
        for (const lint_row &row : ROWS) {
            if (strcmp(row.level, level_of.name) != 0 || strcmp(row.key, field.key) != 0)
                continue;
            if (const std::string what = row.doubt_of(values, value); !what.empty())
                add(at, what);
        }
        if (field.kind == SETTINGS_TABLE)
            level(*field.level, value, at);
        else if (field.kind == SETTINGS_TABLES)
            elements(*field.level, value, at);
    }
}

std::vector<finding> lint_of(const settings_level &level, blob_attr *params)
{
    walk state;
    state.level(level, params, "params");
    return std::move(state.findings);
}
