// The text of batch files: one command a line, as `uci batch` reads it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/zu/ng_uci.h"

/// One command: set, add_list, del_list (each with a value) or delete (without).
struct ng_uci_batch_command {
    ng_uci_action action;
    std::string name;
    std::string value;
};

/// The largest batch file that is applied, in bytes: an ACL of many thousand addresses fits.
constexpr std::size_t NG_UCI_BATCH_MAX = 4 * 1024 * 1024;

/// The command as a line, with its newline. False when the name is not one or the value cannot
/// stand on a line.
bool ng_uci_batch_format(const ng_uci_batch_command &command, std::string &line);
/// Takes a whole file apart; blank lines and lines beginning with "#" are left out. 0, or the
/// number of the first line that is no command.
int ng_uci_batch_parse(std::string_view text, std::vector<ng_uci_batch_command> &commands);
