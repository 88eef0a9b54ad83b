// Programs that a test starts and ends, and waiting for what they do.
#pragma once

#include "support/eventually.h"
#include "support/run.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// A child process; killed and waited for when the record goes.
class program {
public:
    explicit program(std::vector<std::string> command);
    ~program();
    program(const program &) = delete;
    program &operator=(const program &) = delete;
    pid_t pid() const { return pid_; }
    /// Sends the signal; SIGKILL and SIGTERM also wait for the end.
    void end(int signal);

private:
    pid_t pid_;
};

std::string read_text(const std::string &path);
void write_text(const std::string &path, const std::string &text);
