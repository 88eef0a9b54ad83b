// Runs the tool in a child; see tool_run.h.
#include "tool_run.h"

#include <filesystem>

#include "support/run.h"

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

tool_result run_tool(const std::vector<std::string> &arguments, const std::string &input)
{
    const temporary_directory dir;
    write_file(dir / "in", input);
    std::string command = "cd " + dir.path + "; PATH=$(dirname " UCI_TOOL "):$PATH uci";
    for (std::string argument : arguments) {
        for (size_t at = 0; (at = argument.find('\'', at)) != std::string::npos; at += 4)
            argument.replace(at, 1, "'\\''");
        command += " '" + argument + "'";
    }
    const int status = run(command + " <in >out 2>err").status;
    return {status, read_file(dir / "out"), read_file(dir / "err")};
}

std::optional<std::string> content(const std::string &path)
{
    return std::filesystem::exists(path) ? std::optional(read_file(path)) : std::nullopt;
}
