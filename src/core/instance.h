// Whether this start of the program may touch the node at all.
#pragma once

/// Exit status of a start that has arguments: they are answered or refused here. -1 for one without
/// any, which is the daemon's.
[[nodiscard]] int instance_answer_arguments(int argc, char **argv);
/// Becomes the one daemon of the node until the process ends. False (said on standard error) when
/// another one is; true also where the lock file cannot be made: a node without a daemon is worse.
[[nodiscard]] bool instance_become_only();
