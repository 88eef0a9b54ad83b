// A scenario as text: statements of one line each, some with a block up to "end".
//
//   # comment                     a line that begins with '#', and empty lines, say nothing
//   title The wire dies
//   repeat 3 ... end              the block is a list of statements
//   expect journal ... end        the block is compared line by line; so is that of "changes"
#pragma once

#include <string>
#include <vector>

struct statement {
    int line = 0;                      ///< in the file, from 1
    std::string word;                  ///< the first word
    std::string rest;                  ///< what follows it, without blanks at its ends
    std::vector<std::string> block;    ///< lines to compare with, trimmed
    std::vector<statement> statements; ///< of "repeat"
};

/// Reads a scenario. False, with `error` saying line and reason, when it is not well-formed.
bool script_read(const std::string &path, std::vector<statement> *script, std::string *error);

/// Takes the first word off `text`.
std::string cut_word(std::string *text);
/// "1.5s", "10m", "2h", "1d" or a sum of these ("2m30s") in milliseconds; -1 for anything else.
long parse_duration_ms(const std::string &text);
