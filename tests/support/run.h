// Shell commands and what comes of them.
#pragma once

#include <cstdio>
#include <string>
#include <sys/wait.h>

/// A shell command's exit status (128 + number for a signal) and what it wrote to both outputs.
struct outcome {
    int status;
    std::string output;
};

inline outcome run(const std::string &command)
{
    outcome result = {};
    FILE *pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "re");
    char part[4096];
    for (size_t n; (n = fread(part, 1, sizeof(part), pipe)) > 0;)
        result.output.append(part, n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}
