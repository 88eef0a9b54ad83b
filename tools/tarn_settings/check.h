// Judging a document with the daemon's own parser.
#pragma once

#include "settings_kinds.h"

#include <string>

/// How a document comes out; the program's exit status.
enum verdict {
    VERDICT_CLEAN = 0,   ///< accepted, every key of it read
    VERDICT_ODD = 1,     ///< accepted, but something is passed over or cut
    VERDICT_REFUSED = 2, ///< refused, or not a document at all
};

/// Checks one file and prints what there is to say about it, a line each: "FILE: error: ..." or
/// "FILE: warning: ...".
verdict check_file(const document_kind &kind, const std::string &path);
