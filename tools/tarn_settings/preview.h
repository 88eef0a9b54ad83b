// What a push would do to an access point, tried on a copy of its configuration.
#pragma once

#include "check.h"
#include "push_effect.h"

struct preview_request {
    const document_kind *kind;
    std::string file;   ///< the document, or "-"
    std::string config; ///< directory of the configuration, as /etc/config
    bool as_json;
    bool with_secrets; ///< keys are shown, not "***"
};

/// What came of it. Everything below `judged` is empty when the document is refused.
struct preview_report {
    judgement judged;
    const char *upstream; ///< that the configuration was last made for
    bool delayed;
    const char *at_once_reason; ///< null when delayed
    push_effect at_once;
    push_effect after_wait;
};

/// Status of a preview that could not be made.
constexpr int PREVIEW_FAILED = 3;

/// Prints the preview. The document's verdict, or PREVIEW_FAILED with the reason on standard error.
/// Nothing outside this process is changed; the process is of no use for anything else afterwards.
int preview_file(const preview_request &request);

/// Prints a report (preview_print.cpp).
void print_preview(const preview_request &request, const preview_report &report);
