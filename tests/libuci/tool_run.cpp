#include "tool_run.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

uci_directories::uci_directories()
{
    char name[] = "/tmp/libuci-test-XXXXXX";
    root_ = mkdtemp(name) ? name : "";
    std::filesystem::create_directory(conf());
    std::filesystem::create_directory(save());
}

uci_directories::~uci_directories()
{
    std::filesystem::remove_all(root_);
}

tool_result uci_directories::run(const std::vector<std::string> &arguments,
                                 const std::string &input) const
{
    std::vector<std::string> all = {"-c", conf(), "-C", "", "-t", save()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run_tool(all, input);
}

/// Runs the tool in the child: standard streams are the files of `dir`.
[[noreturn]] static void exec_tool(const std::string &dir,
                                   const std::vector<std::string> &arguments)
{
    std::vector<char *> argv = {const_cast<char *>("uci")};
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    if (freopen((dir + "/in").c_str(), "r", stdin) &&
        freopen((dir + "/out").c_str(), "w", stdout) &&
        freopen((dir + "/err").c_str(), "w", stderr))
        execv(UCI_TOOL, argv.data());
    _exit(126);
}

tool_result run_tool(const std::vector<std::string> &arguments, const std::string &input)
{
    char name[] = "/tmp/libuci-run-XXXXXX";
    const std::string dir = mkdtemp(name);
    write_file(dir + "/in", input);
    const pid_t child = fork();
    if (child == 0)
        exec_tool(dir, arguments);
    int status = 0;
    waitpid(child, &status, 0);
    const tool_result result{WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                             read_file(dir + "/out").value_or(""),
                             read_file(dir + "/err").value_or("")};
    std::filesystem::remove_all(dir);
    return result;
}

std::optional<std::string> read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return {};
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}
