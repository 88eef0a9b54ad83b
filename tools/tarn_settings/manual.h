// docs/settings.md, from the rows.
#pragma once

/// Prints the manual of every kind of document.
void print_manual();
