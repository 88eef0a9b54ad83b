#include "programs.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

program::program(std::vector<std::string> command)
{
    pid_ = fork();
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

program::~program()
{
    end(SIGKILL);
}

void program::end(int signal)
{
    if (pid_ <= 0)
        return;
    kill(pid_, signal);
    if (signal != SIGKILL && signal != SIGTERM)
        return;
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

outcome run(const std::string &command)
{
    outcome result = {};
    FILE *pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "re");
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof(buffer), pipe)) > 0;)
        result.output.append(buffer, n);
    int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

bool eventually(const std::function<bool()> &condition, int limit_ms)
{
    auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

std::string read_text(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

void write_text(const std::string &path, const std::string &text)
{
    std::ofstream(path) << text;
}
