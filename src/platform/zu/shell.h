// Shell commands. They block the loop until they end: only short ones are run this way.
#pragma once

/// How a command ended.
struct shell_result {
    bool ran;        ///< false: the shell could not be started or the command died of a signal
    int error;       ///< errno when !ran
    int exit_status; ///< 0..255 when ran
};

/// Runs `command` through system(3). SIGCHLD handling of the event loop is left in place: system
/// waits for its own child by id while the loop stands still.
[[nodiscard]] shell_result shell_run(const char *command);
/// The same when the outcome does not matter.
void shell_run_ignored(const char *command);
