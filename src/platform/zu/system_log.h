// Copies of messages in the system's log, which a router keeps in a ring of its own and may send on
// to a server: what went wrong is seen there without opening the daemon's file.
#pragma once

/// Opens the socket by which copies are sent to the log daemon at `path` ("/dev/log"). Called once;
/// on failure there are no copies.
void system_log_open(const char *path);

/// Sends one line, a message of `level` (enum zu_log_level) without control characters. It never
/// waits: with nobody at the path, or with more waiting there than the log daemon takes, the copy
/// is lost, and the next line tries anew.
void system_log_send(int level, const char *message);
