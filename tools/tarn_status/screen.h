// The status as a screen of text.
#pragma once

#include "facts.h"

/// What the facts come to, in lines of at most `columns` columns. With `colour` for a terminal.
std::string screen_of(json_object *facts, size_t columns, bool colour);
