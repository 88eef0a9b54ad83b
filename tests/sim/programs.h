// Programs that a test starts and ends, and waiting for what they do.
#pragma once

#include <functional>
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

/// A shell command's exit status (128 + number for a signal) and what it wrote to both outputs.
struct outcome {
    int status;
    std::string output;
};
outcome run(const std::string &command);

/// True as soon as `condition` holds; false when it does not within `limit_ms`.
bool eventually(const std::function<bool()> &condition, int limit_ms = 5000);

std::string read_text(const std::string &path);
void write_text(const std::string &path, const std::string &text);
