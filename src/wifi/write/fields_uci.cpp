// The rows of the settings and their options.
//
// What a push writes for other services mostly says what was pushed. What no option says (a
// disabled network's key, say) is kept in sections of the daemon's own package: "settings",
// "settings_ssid1" to 4, "settings_radio0" to 2. What stands there counts before the option and is
// there only while the option says something else, so what an operator configures is read back.
// Values are kept with
// "=" before them, as an option cannot be empty; list items with their number, as lists hold no
// duplicates.
#include "wifi/write/fields_uci.h"

#include <algorithm>
#include <cstring>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_batch.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/write_internal.h"

using values = std::vector<std::string>;

// ---- the parts of a record

template <typename Record>
static char *bytes_of(const Record &record)
{
    return reinterpret_cast<char *>(const_cast<Record *>(&record)); // only readers write to it
}

static const wifi_ssid_settings &slot_of(const wifi_settings &settings, int ssid)
{
    return settings.ssids[ssid - 1];
}

static std::string kept_ssid(int ssid)
{
    return numbered("tarn_net.settings_ssid", ssid);
}

static int first_radio(bool (*counts)(int band))
{
    for (int radio = 0; radio < wifi_radio_count(); radio++)
        if (counts(wifi_radio_band_type(radio)))
            return radio;
    return -1;
}

/// Calls `visit` for each part, as read back.
template <typename visitor>
static void for_each_part(const wifi_settings &settings, visitor visit)
{
    const int radio = first_radio([](int band) { return band != WIFI_BAND_SCANNING; });
    visit(wifi_node_part(settings, radio, first_radio([](int band) {
                             return band == WIFI_BAND_5GHZ_LOW || band == WIFI_BAND_5GHZ_HIGH ||
                                    band == WIFI_BAND_5GHZ;
                         })));
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        visit(wifi_ssid_part(settings, ssid, radio));
        for (int band = 0; band < WIFI_BANDS; band++)
            visit(wifi_band_part(settings, ssid, band));
        visit(wifi_dhcp_part(settings, ssid));
    }
    for (int i = 0; i < WIFI_RADIOS_MAX; i++)
        visit(wifi_radio_part(settings, i));
}

/// Calls `visit` for each row that is read back.
template <typename visitor>
static void for_each_row(const wifi_settings &settings, visitor visit)
{
    for_each_part(settings, [visit](const wifi_part &part) {
        for (const wifi_field &row : part.rows)
            if (row.use != ALSO)
                visit(part, row);
    });
}

// ---- names

/// The format with its "%d"s replaced; empty when a number is negative.
static std::string fill(const char *format, int first, int second = 0)
{
    if (first < 0 || second < 0)
        return {};
    std::string name(format);
    for (const int number : {first, second})
        if (const size_t at = name.find("%d"); at != name.npos)
            name.replace(at, 2, std::to_string(number));
    return name;
}

/// The option's name; empty for a setting without an option.
static std::string option_of(const wifi_part &part, const wifi_field &row)
{
    if (!row.option)
        return {};
    switch (row.where) {
    case NODE:
        return row.option;
    case RADIO:
        return fill(row.option, part.radio);
    case DFS_RADIO:
        return fill(row.option, part.dfs_radio);
    case SSID:
        return fill(row.option, part.ssid);
    case AP:
        return fill(row.option, part.radio, part.ssid);
    }
    return {};
}

static std::string kept_name(const wifi_part &part, const wifi_field &row)
{
    return fill(row.name, std::max(part.band, 0));
}

static std::string kept_option(const wifi_part &part, const wifi_field &row)
{
    return part.kept + "." + kept_name(part, row);
}

// ---- read back

/// Options that were passed over since the record was last read.
static constinit std::vector<std::string> gSaid_unfit;

/// What the option holds, but for what no setting can hold, which is said once.
static values items_of(const std::string &name)
{
    values items = ng_uci_items(name);
    const auto unfit = std::remove_if(items.begin(), items.end(), [](const std::string &item) {
        return !ng_uci_is_value(item.c_str());
    });
    if (unfit != items.end() &&
        std::find(gSaid_unfit.begin(), gSaid_unfit.end(), name) == gSaid_unfit.end()) {
        log_warning("Dropping the value of '%s': it holds a control character", name.c_str());
        gSaid_unfit.push_back(name);
    }
    items.erase(unfit, items.end());
    return items;
}

static bool says_it_now(const wifi_part &part, const wifi_field &row)
{
    return !row.while_enabled || reinterpret_cast<const wifi_dhcp_settings *>(part.record)->enable;
}

static values option_values(const wifi_part &part, const wifi_field &row)
{
    const std::string name = says_it_now(part, row) ? option_of(part, row) : std::string();
    values found = name.empty() ? values{} : items_of(name);
    const size_t prefix = strlen(row.prefix);
    for (std::string &value : found)
        value = value.compare(0, prefix, row.prefix) == 0 ? value.substr(prefix) : "";
    if (field_is_list(row) || found.size() == 1)
        return found;
    return {row.kind == SETTINGS_STRING ? "" : std::to_string(row.absent)};
}

/// As comparing with option_values(), but long lists are not copied for it.
static bool option_says(const wifi_part &part, const wifi_field &row, const values &wanted)
{
    const std::string name = says_it_now(part, row) ? option_of(part, row) : std::string();
    const bool plain_list = field_is_list(row) && !row.prefix[0] && !name.empty();
    return (plain_list && ng_uci_is_list(name, wanted)) || option_values(part, row) == wanted;
}

/// Empty when nothing is kept.
static values kept_values(const wifi_part &part, const wifi_field &row)
{
    values found = items_of(kept_option(part, row));
    for (std::string &value : found)
        value.erase(0, value.find('=') + 1);
    return found;
}

static void read_row(const wifi_part &part, const wifi_field &row, bool with_kept)
{
    values found = with_kept && row.stage != FOREIGN ? kept_values(part, row) : values{};
    if (found.empty())
        found = option_values(part, row);
    else if (field_is_list(row))
        found.erase(found.begin()); // what says that there is a list
    field_store(row, part.record, found);
}

// ---- kept

static void keep_row(const wifi_part &part, const wifi_field &row)
{
    const std::string name = kept_option(part, row);
    const values wanted = field_texts(row, part.record);
    ng_uci_clear(name);
    if (row.stage == FOREIGN || option_says(part, row, wanted))
        return;
    if (!field_is_list(row)) {
        ng_uci_put(name, ("=" + wanted.front()).c_str());
        return;
    }
    values items = {"="}; // also of an empty list there is something to be seen
    for (size_t i = 0; i < wanted.size(); i++)
        items.push_back(std::to_string(i) + "=" + wanted[i]);
    (void)ng_uci_put_list(name, items); // a failure is logged there
}

static bool row_can_be_written(const wifi_part &part, const wifi_field &row)
{
    if (field_texts_are(row, part.record, ng_uci_is_value))
        return true;
    // The text stays out of the log: it may be a key.
    log_error("'%s' of %s holds a control character", kept_name(part, row).c_str(),
              part.kept.c_str() + strlen("tarn_net."));
    return false;
}

// ---- written

static bool is_in(const char *option, const char *section)
{
    const size_t length = strlen(section);
    return option && strncmp(option, section, length) == 0 && option[length] == '.';
}

/// Calls `put` with the name and the values of each plain option of the section and stage.
template <typename Put>
static void for_each_option(const wifi_part &part, const char *section, field_stage stage, Put put)
{
    for (const wifi_field &row : part.rows) {
        if (row.stage != stage || row.use == DERIVED || !is_in(row.option, section))
            continue;
        if (const std::string name = option_of(part, row); !name.empty())
            put(row, name, field_texts(row, part.record));
    }
}

wifi_part wifi_node_part(const wifi_settings &settings, int radio, int dfs_radio)
{
    return {NODE_FIELDS, bytes_of(settings), "tarn_net.settings", radio, dfs_radio};
}

wifi_part wifi_radio_part(const wifi_settings &settings, int radio)
{
    return {RADIO_FIELDS, bytes_of(settings.radios[radio]),
            numbered("tarn_net.settings_radio", radio), radio};
}

wifi_part wifi_ssid_part(const wifi_settings &settings, int ssid, int radio)
{
    return {SSID_FIELDS, bytes_of(slot_of(settings, ssid)), kept_ssid(ssid), radio, -1, ssid};
}

wifi_part wifi_band_part(const wifi_settings &settings, int ssid, int band)
{
    return {
        BAND_FIELDS, bytes_of(slot_of(settings, ssid).bands[band]), kept_ssid(ssid), -1, -1, ssid,
        band};
}

wifi_part wifi_dhcp_part(const wifi_settings &settings, int ssid)
{
    return {DHCP_FIELDS, bytes_of(slot_of(settings, ssid).dhcp), kept_ssid(ssid), -1, -1, ssid};
}

void fields_write(const wifi_part &part, const char *section)
{
    for_each_option(part, section, DIRECT,
                    [](const wifi_field &row, const std::string &name, const values &wanted) {
                        if (field_is_list(row))
                            ng_uci_put_list(name, wanted);
                        else
                            ng_uci_put(name, wanted.front().c_str());
                    });
}

static void stage_list(ng_uci_batch *batch, const std::string &name, const values &items)
{
    ng_uci_batch_del_fmt(batch, "%s", name.c_str());
    for (const std::string &item : items)
        ng_uci_batch_fmt_list(batch, item.c_str(), "%s", name.c_str());
}

void fields_stage(ng_uci_batch *batch, const wifi_part &part, const char *section)
{
    for_each_option(part, section, STAGED,
                    [batch](const wifi_field &row, const std::string &name, const values &wanted) {
                        if (field_is_list(row))
                            stage_list(batch, name, wanted);
                        else
                            ng_uci_batch_set_fmt_string(batch, wanted.front().c_str(), "%s",
                                                        name.c_str());
                    });
}

void wifi_keep_settings(const wifi_settings &settings)
{
    for_each_part(settings, [](const wifi_part &part) { ng_uci_put(part.kept, "settings"); });
    for_each_row(settings, keep_row);
}

void wifi_read_settings(wifi_settings *settings)
{
    gSaid_unfit.clear();
    for_each_row(*settings,
                 [](const wifi_part &part, const wifi_field &row) { read_row(part, row, true); });
}

/// Reads what the options of one stage say.
static void read_stage(wifi_settings *settings, field_stage stage)
{
    for_each_row(*settings, [stage](const wifi_part &part, const wifi_field &row) {
        if (row.stage == stage)
            read_row(part, row, false);
    });
}

void wifi_read_staged_settings(wifi_settings *settings)
{
    read_stage(settings, STAGED);
}

bool wifi_settings_can_be_read()
{
    bool good = true;
    const auto check = [&good](const std::string &name) {
        const std::string package = name.substr(0, name.find('.'));
        good = good && ng_uci_check_readable(package.c_str()) != NG_UCI_UNREADABLE;
    };
    for_each_row(*wifi_live_settings(), [check](const wifi_part &part, const wifi_field &row) {
        check(row.option ? row.option : part.kept);
    });
    return good;
}

void wifi_read_foreign_settings(wifi_settings *settings)
{
    read_stage(settings, FOREIGN);
}

bool wifi_settings_can_be_written(const wifi_settings &settings)
{
    bool good = true;
    for_each_row(settings, [&good](const wifi_part &part, const wifi_field &row) {
        good = row_can_be_written(part, row) && good;
    });
    return good;
}
