// Settings documents as tables: one row binds a document key, its blobmsg type and the record's
// member, and says what the value must be. The parser, the offline checker, the JSON Schema and the
// documentation walk the same rows, so adding a field is adding a row.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

extern "C" {
#include <libubox/blobmsg.h>
}

enum settings_kind : uint8_t {
    SETTINGS_BOOL,     ///< INT8 into a bool, non-zero is true
    SETTINGS_FLAG,     ///< INT8 into a uint32_t of 0 or 1
    SETTINGS_INT,      ///< INT32 into an int32_t or uint32_t
    SETTINGS_STRING,   ///< STRING into a text, cut to its size
    SETTINGS_TABLE,    ///< TABLE described by `level`
    SETTINGS_TABLES,   ///< ARRAY of tables described by `level`
    SETTINGS_INTS,     ///< ARRAY of INT32; in a record int32_t's with their count right behind
    SETTINGS_STRINGS,  ///< ARRAY of STRING; in a record texts of one size, up to the first empty
    SETTINGS_PRESENCE, ///< ARRAY whose being there is all that counts
};

/// Texts that only the platform can tell.
enum settings_choice : uint8_t {
    SETTINGS_ANY_TEXT,
    SETTINGS_RADIO_IN_USE, ///< the band of a radio that has settings, or "scanning"
    SETTINGS_SSID_BAND,    ///< a known band that some radio has
    SETTINGS_ANY_RADIO,    ///< the band of any radio
};

/// What a value must be beyond its type; for arrays of integers and texts, what each element must
/// be. A value outside is refused, passed over or cut: the row's `error` and `meaning` say which.
struct settings_limits {
    int32_t min = INT32_MIN; ///< of integers
    int32_t max = INT32_MAX;
    std::span<const uint8_t> numbers{};   ///< the only integers, unless empty
    uint32_t text_min = 0;                ///< of texts, in bytes
    uint32_t text_max = UINT32_MAX;       ///< of texts that no member bounds, in bytes
    std::span<const char *const> words{}; ///< the only texts, unless empty
    settings_choice choice = SETTINGS_ANY_TEXT;
    bool (*takes)(const char *text) = nullptr; ///< of texts: what is asked of each
    const char *pattern = nullptr;   ///< the same as a regular expression, extended and ECMA alike;
                                     ///< it may want what is taken written in one way
    uint32_t items_max = UINT32_MAX; ///< elements of an array that are kept
    const char *rule = nullptr;      ///< for people, where the other members do not read well
};

constexpr uint32_t SETTINGS_NO_MEMBER = UINT32_MAX;
constexpr settings_limits SETTINGS_NO_LIMITS{};

struct settings_level;

struct settings_field {
    const char *key = nullptr;
    settings_kind kind = SETTINGS_BOOL;
    uint32_t offset = SETTINGS_NO_MEMBER;  ///< in the level's record; or taken by code
    uint32_t size = 0;                     ///< of the member in bytes
    const settings_level *level = nullptr; ///< of TABLE and TABLES
    const settings_limits *limits = &SETTINGS_NO_LIMITS;
    const char *meaning = nullptr; ///< for people, one line
    const char *absent = nullptr;  ///< what its absence means; null: what was set stays
    const char *error = nullptr;   ///< the line that refuses the document; null: none does
    bool required = false;
    bool secret = false;     ///< never in a log
    bool never_read = false; ///< known, and passed over
};

/// One table of a document.
struct settings_level {
    const char *name;   ///< of the section, for people: "ssids element"
    const char *broken; ///< the line that refuses a table that is malformed, or empty
    std::span<const settings_field> fields;
    std::span<const blobmsg_policy> policy; ///< row for row the same keys
    bool may_be_empty = false;              ///< an empty table gives nothing and is not refused
};

/// Most rows a level has.
constexpr size_t SETTINGS_FIELDS_MAX = 32;

/// Blobmsg type that a row's value has in the document.
constexpr enum blobmsg_type settings_blobmsg_type(settings_kind kind)
{
    switch (kind) {
    case SETTINGS_BOOL:
    case SETTINGS_FLAG:
        return BLOBMSG_TYPE_INT8;
    case SETTINGS_INT:
        return BLOBMSG_TYPE_INT32;
    case SETTINGS_STRING:
        return BLOBMSG_TYPE_STRING;
    case SETTINGS_TABLE:
        return BLOBMSG_TYPE_TABLE;
    case SETTINGS_TABLES:
    case SETTINGS_INTS:
    case SETTINGS_STRINGS:
    case SETTINGS_PRESENCE:
        return BLOBMSG_TYPE_ARRAY;
    }
    return BLOBMSG_TYPE_UNSPEC;
}

/// The row of a key, or null.
const settings_field *settings_find_row(const settings_level &level, const char *key);
/// The row of a key that must be one of the level's.
const settings_field &settings_row(const settings_level &level, const char *key);

/// The policy of a level's rows.
template <size_t N>
constexpr std::array<blobmsg_policy, N> settings_policy(const settings_field (&rows)[N])
{
    static_assert(N <= SETTINGS_FIELDS_MAX);
    std::array<blobmsg_policy, N> policy{};
    for (size_t i = 0; i < N; i++)
        policy[i] = {rows[i].key, settings_blobmsg_type(rows[i].kind)};
    return policy;
}

/// A parsed table: for each row of its level the attribute, or null.
struct settings_values {
    const settings_level *level;
    std::array<blob_attr *, SETTINGS_FIELDS_MAX> attrs;

    /// The attribute of `key`, which must be one of the level's; null when absent.
    [[nodiscard]] blob_attr *get(const char *key) const;
    /// False when the value of `key` is there and outside its row's limits.
    [[nodiscard]] bool fits(const char *key) const;
};

/// Parses a table's content. False, with the level's line at ERROR, when it is no table, malformed,
/// or empty where it may not be. Keys that are unknown or of another type are passed over, as
/// blobmsg_parse does.
[[nodiscard]] bool settings_parse_level(const settings_level &level, blob_attr *table,
                                        settings_values *out);
/// Tells the caller of parse_config which keys of the document no row has, and which values are of
/// another type than their row's, with their places ("ssids[0].psk"): one message each. Only for a
/// message that zu_blobmsg_valid() accepts.
void settings_explain_passed_over(const settings_level &level, blob_attr *params);
/// A value on its way between document, record and configuration: a number, unless it is a text.
struct settings_value {
    uint32_t number = 0;
    const char *text = nullptr;
};
/// What a record's member of that kind holds; only of kinds that are neither tables nor arrays.
settings_value settings_load(settings_kind kind, const char *member);
/// Puts a value into a record's member of `size` bytes; only of those kinds.
void settings_save(settings_kind kind, uint32_t size, char *member, const settings_value &value);

/// What is wrong with a value.
enum settings_fault : uint8_t {
    SETTINGS_FITS,
    SETTINGS_OUT_OF_RANGE,
    SETTINGS_MALFORMED, ///< a text that is not taken
    SETTINGS_TOO_SHORT,
};
/// Judges a number by a row's limits.
[[nodiscard]] settings_fault settings_number_fault(const settings_limits &limits, int32_t number);
/// Judges a text by a row's limits, but for `choice` and `words`.
[[nodiscard]] settings_fault settings_text_fault(const settings_limits &limits, const char *text);
/// Judges a value of the row's type, or an element of its list's, as above.
[[nodiscard]] settings_fault settings_value_fault(const settings_field &field, blob_attr *value);

/// Stores every value that is there and has a member of its own.
void settings_store(const settings_values &values, void *record);
/// A text into a member or slot of `size` bytes, cut and terminated.
void settings_store_text(char *member, size_t size, const char *text);
