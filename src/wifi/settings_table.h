// The settings document as tables: one row binds a document key, its blobmsg type and the record's
// member. The parser, the offline checker, the JSON Schema and the documentation walk the same
// rows, so adding a field is adding a row.
#pragma once

#include <libubus.h>

#include "wifi/wifi_settings.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

enum settings_kind : uint8_t {
    SETTINGS_BOOL,     ///< INT8 into a bool, non-zero is true
    SETTINGS_FLAG,     ///< INT8 into a uint32_t of 0 or 1
    SETTINGS_INT,      ///< INT32 into an int32_t or uint32_t
    SETTINGS_STRING,   ///< STRING into a text, cut to its size
    SETTINGS_TABLE,    ///< TABLE described by `level`
    SETTINGS_TABLES,   ///< ARRAY of tables described by `level`
    SETTINGS_INTS,     ///< ARRAY of INT32
    SETTINGS_STRINGS,  ///< ARRAY of STRING
    SETTINGS_PRESENCE, ///< ARRAY whose being there is all that counts
};

constexpr uint32_t SETTINGS_NO_MEMBER = UINT32_MAX;

struct settings_level;

struct settings_field {
    const char *key;
    settings_kind kind;
    uint32_t offset; ///< of the member in the level's record; SETTINGS_NO_MEMBER: taken by code
    uint32_t size;   ///< of the member in bytes; for arrays the most elements kept
    const settings_level *level; ///< of TABLE and TABLES
    const char *rule;            ///< what the value must be beyond its type, for people; or null
    const char *meaning;         ///< for people, one line
    bool required;
    bool secret; ///< never in a log
};

/// One table of the document.
struct settings_level {
    const char *name; ///< of the section, for people: "ssids element"
    std::span<const settings_field> fields;
    std::span<const blobmsg_policy> policy; ///< row for row the same keys
};

// The levels, in the order of the document.
extern const settings_level SETTINGS_TOP;
extern const settings_level SETTINGS_MESH;
extern const settings_level SETTINGS_BATMAN;
extern const settings_level SETTINGS_REGULATORY;
extern const settings_level SETTINGS_DFS;
extern const settings_level SETTINGS_RADIO;
extern const settings_level SETTINGS_SSID;
extern const settings_level SETTINGS_BAND;
extern const settings_level SETTINGS_DHCP;
extern const settings_level SETTINGS_ORPHAN_CONNECT;
extern const settings_level SETTINGS_NEIGHBOR;

/// Most rows a level has.
constexpr size_t SETTINGS_FIELDS_MAX = 32;

/// A parsed table: for each row of its level the attribute, or null.
struct settings_values {
    const settings_level *level;
    std::array<blob_attr *, SETTINGS_FIELDS_MAX> attrs;

    /// The attribute of `key`, which must be one of the level's; null when absent.
    [[nodiscard]] blob_attr *get(const char *key) const;
};

/// Parses a table's content. False when an attribute is malformed. Keys that are unknown or of
/// another type are passed over, as blobmsg_parse does.
[[nodiscard]] bool settings_parse_level(const settings_level &level, blob_attr *table,
                                        settings_values *out);
/// Stores every value that is there and has a member of its own.
void settings_store(const settings_values &values, void *record);
/// Blobmsg type that a row's value has in the document.
enum blobmsg_type settings_blobmsg_type(settings_kind kind);
