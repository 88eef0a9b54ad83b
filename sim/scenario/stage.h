// The running node as a scenario acts on it and looks at it. Whatever waits lets the time line go
// on being read.
#pragma once

#include <map>
#include <string>

/// Lets the time of the node pass.
void stage_advance_ms(long ms);
/// Runs a shell command; its exit status. What it printed is added to `output` when given.
int stage_run(const std::string &command, std::string *output = nullptr);
/// Runs a program, its words divided by blanks, without a shell; its exit status.
int stage_run_program(const std::string &words);
/// The JSON text that a bus call answers, or "" when there is none within three seconds.
std::string stage_ask(const std::string &object, const std::string &method);

/// "break WHAT" and "mend WHAT": something the daemon needs does not work.
///   commit PACKAGE   the package cannot be committed
///   disk             /tmp is full
///   shell            every shell ends by a signal at once
///   lock PACKAGE     another process has the package locked
///   file PACKAGE     the package's file does not parse
/// False when there is no such WHAT or it cannot be done.
bool stage_break(const std::string &what);
bool stage_mend(const std::string &what);
/// Gives the node a /tmp of a size, to be called before it starts.
bool stage_bound_tmp();

/// Names and amounts of what may not grow: memory, descriptors, processes, rules, configuration.
std::map<std::string, long> stage_amounts();
/// Descriptors and children of the daemon, and how many daemons there are.
std::map<std::string, long> stage_daemon_amounts();
/// Every option and section of the node's UCI, as `uci show` writes them.
std::map<std::string, std::string> stage_configuration();
/// Longest loop callback of the daemon so far; its end is in seconds since boot.
struct stage_callback {
    double ms;
    double commands_ms; ///< of it waiting for commands
    double end_s;
};
stage_callback stage_longest_callback();
