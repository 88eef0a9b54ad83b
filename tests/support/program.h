// A child process that a test starts and ends.
#pragma once

#include <csignal>
#include <cstdio>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/// Killed and waited for when the record goes.
class program {
    pid_t pid_;

public:
    explicit program(std::vector<std::string> command) : pid_(fork())
    {
        if (pid_ != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::vector<char *> arguments;
        for (auto &word : command)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        perror(arguments[0]);
        _exit(127);
    }
    ~program() { end(SIGKILL); }
    program(const program &) = delete;
    program &operator=(const program &) = delete;
    pid_t pid() const { return pid_; }
    /// Sends the signal; SIGKILL and SIGTERM also wait for the end.
    void end(int signal)
    {
        if (pid_ <= 0)
            return;
        kill(pid_, signal);
        if (signal != SIGKILL && signal != SIGTERM)
            return;
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
};
