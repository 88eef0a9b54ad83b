// Values that the daemon takes, and that are plainly not meant.
#pragma once

#include "findings.h"

/// Walks a document (the `params` table) and doubts what no access point could do anything with: a
/// channel of another band, a malformed address. None of these refuses a document.
std::vector<finding> lint_of(const settings_level &level, blob_attr *params);
