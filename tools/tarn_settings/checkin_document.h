// The wireless section of the check-in, described from the daemon's rows.
#pragma once

/// Prints its JSON Schema.
void print_checkin_schema();
/// Prints docs/checkin.md.
void print_checkin_manual();
