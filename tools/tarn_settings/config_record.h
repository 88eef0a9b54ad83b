// The configuration as values, and what differs between two states of it.
#pragma once

#include <map>
#include <string>
#include <vector>

struct config_option {
    bool is_list;
    std::vector<std::string> items; ///< one, unless it is a list
    bool operator==(const config_option &) const = default;
};
struct config_section {
    std::string type;
    std::map<std::string, config_option> options;
};
/// Sections by name; one without a name as "@TYPE[N]", the Nth of the nameless ones.
using config_package = std::map<std::string, config_section>;
using config_record = std::map<std::string, config_package>;

/// Reads the packages that a push writes to from /etc/config. False with libuci's words in `error`
/// for one that does not parse.
bool read_config(config_record &record, std::string &error);

/// What becomes of one option, or of a section's type.
struct config_change {
    std::string section;
    std::string option; ///< empty: the section itself, its type the only item
    /// Without the items of `removed`, then with those of `added` at its end, it is as afterwards.
    std::vector<std::string> removed, added;
};
/// Changes by package; only packages with changes.
using config_changes = std::map<std::string, std::vector<config_change>>;

config_changes config_difference(const config_record &before, const config_record &after);
