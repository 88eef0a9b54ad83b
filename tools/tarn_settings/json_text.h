// What only a document's text shows: where a fault is, and which keys stand twice.
#pragma once

#include <string_view>

#include "findings.h"

/// "line 3, column 7" of a byte of the text; both count from 1, columns in bytes.
std::string json_place(std::string_view text, size_t byte);

/// The keys that an object repeats, of which the last one counts. The text must be valid JSON.
std::vector<finding> json_repeated_keys(std::string_view text);
