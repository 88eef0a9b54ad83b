#include "tool_run.h"

#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

uci_directories::uci_directories()
{
    std::filesystem::create_directory(conf());
    std::filesystem::create_directory(save());
}

tool_result uci_directories::run(const std::vector<std::string> &arguments,
                                 const std::string &input) const
{
    std::vector<std::string> all = {"-c", conf(), "-C", "", "-t", save()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run_tool(all, input);
}

/// Runs the tool in the child: standard streams are the files of `dir`.
[[noreturn]] static void exec_tool(const temporary_directory &dir,
                                   const std::vector<std::string> &arguments)
{
    std::vector<char *> argv = {const_cast<char *>("uci")};
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    if (freopen((dir / "in").c_str(), "r", stdin) && freopen((dir / "out").c_str(), "w", stdout) &&
        freopen((dir / "err").c_str(), "w", stderr))
        execv(UCI_TOOL, argv.data());
    _exit(126);
}

tool_result run_tool(const std::vector<std::string> &arguments, const std::string &input)
{
    const temporary_directory dir;
    write_file(dir / "in", input);
    const pid_t child = fork();
    if (child == 0)
        exec_tool(dir, arguments);
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(dir / "out"),
            read_file(dir / "err")};
}

std::optional<std::string> content(const std::string &path)
{
    return std::filesystem::exists(path) ? std::optional(read_file(path)) : std::nullopt;
}
