// Shell commands. They block the loop until they end: only short ones are run this way.
#pragma once

/// How a command ended.
struct shell_result {
    bool ran;        ///< false: the shell could not be started, died of a signal or took too long
    int error;       ///< errno when !ran
    int exit_status; ///< 0..255 when ran
};

/// Runs `command` by /bin/sh and waits for it, at most thirty seconds: then its process group is
/// killed (logged; ETIMEDOUT). Other children, and SIGCHLD, stay the event loop's.
[[nodiscard]] shell_result shell_run(const char *command);
/// The same for a single program that dies with the daemon: left over, it would come into force
/// after what the next daemon has run.
[[nodiscard]] shell_result shell_run_bound(const char *command);
/// For a forked child that is ended with its process group when its time is over: runs `command` in
/// that group, without a limit of its own. False when it could not run or died of a signal.
[[nodiscard]] bool shell_run_in_group(const char *command);
/// The command that makes services follow the committed configuration.
constexpr char RELOAD_SERVICES[] = "reload_config";
/// As shell_run() when the outcome does not matter.
void shell_run_ignored(const char *command);
