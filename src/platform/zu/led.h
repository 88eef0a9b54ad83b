// Status flags for the LED daemon: one file per flag under /tmp/led_flags, holding "0" or "1".
#pragma once

/// Writes the flag's file, only when its value changes. Failures are logged at WARNING.
void update_led_flag(const char *name, bool on);
