// The JSON Schema of a kind of document.
#pragma once

#include "settings_kinds.h"

/// Prints it, dialect 2020-12, for the platform that was loaded.
void print_json_schema(const document_kind &kind);
