// What is odd about a document, found by its rows alone.
#pragma once

#include "settings_kinds.h"

/// One oddity: where, and what the daemon makes of it.
struct finding {
    std::string path; ///< "params.ssids[0].index"
    std::string what;
    /// The lines with which a parser refuses the document for such a thing, as formats with "; "
    /// between them; null: it does not.
    const char *refusal;
    /// For each refusing row around it, outermost first, its path.
    std::vector<std::string> outer;
};

/// Walks a document (the `params` table) in its parser's order.
std::vector<finding> findings_of(const settings_level &level, blob_attr *params);
