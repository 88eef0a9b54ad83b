#include "programs.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
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
