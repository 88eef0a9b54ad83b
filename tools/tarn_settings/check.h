// Judging a document with the daemon's own parser.
#pragma once

#include <functional>
#include <string>

#include "settings_kinds.h"

/// How a document comes out; the program's exit status.
enum verdict {
    VERDICT_CLEAN = 0,   ///< accepted, every key of it read
    VERDICT_ODD = 1,     ///< accepted, but something is passed over, cut or hardly meant
    VERDICT_REFUSED = 2, ///< refused, or not a document at all
};

/// What there is to say about a document, a line each whatever its texts hold: "error: PLACE: WHAT"
/// where it is refused, "warning: PLACE: WHAT" where something is passed over or cut, and, from a
/// check, "lint: PLACE: WHAT" where a value is taken that can hardly be meant.
struct judgement {
    verdict result = VERDICT_CLEAN;
    std::vector<std::string> lines;
};

/// Hands the message's `params` to the daemon: 0, or refused with its reasons logged at ERROR.
using document_taker = std::function<int(blob_attr *params)>;

/// Judges a message by what `take` says to it.
judgement judge(const document_kind &kind, blob_buf *message, const document_taker &take);

/// Checks one file and prints its lines, each after "FILE: ".
verdict check_file(const document_kind &kind, const std::string &path);

/// The text with its control characters written out, as in the daemon's log.
std::string on_one_line(const std::string &text);
