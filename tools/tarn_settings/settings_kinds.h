// The kinds of settings documents there are, and what their rows say about a value.
#pragma once

#include <string>
#include <vector>

#include "platform/fw_core/settings_rows.h"

/// A kind of document: the message of one package's parse_config.
struct document_kind {
    const char *name;   ///< "wifi"
    const char *object; ///< the bus object that takes it
    const char *title;  ///< for people
    const settings_level *level;
    int (*parse)(blob_attr *params); ///< 0, or refused with its reasons logged at ERROR
    int (*push)(blob_attr *message); ///< the daemon's callback: puts it into force, or refuses it
    /// Why a push would put all of it into force at once, or null when some of it would wait.
    const char *(*at_once_reason)(blob_attr *params);
};

/// Every kind; the first one is meant where none is named.
std::span<const document_kind> document_kinds();

/// Most bytes of a text that are kept; UINT32_MAX: all.
uint32_t settings_text_max(const settings_field &field);
/// True for a text that the record keeps, which is one with a length.
bool settings_is_kept(const settings_field &field);
/// The texts that a platform allows; empty for SETTINGS_ANY_TEXT.
std::vector<std::string> settings_choices(settings_choice choice);
