// A private set of UCI directories, and the `uci` tool run on them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/temporary_directory.h"

struct tool_result {
    int exit;
    std::string out, err;
};

class uci_directories {
public:
    uci_directories();

    std::string root() const { return root_.path; }
    std::string conf() const { return root_ / "config"; }
    std::string save() const { return root_ / "save"; }
    std::string conf(const std::string &package) const { return conf() + "/" + package; }
    std::string save(const std::string &package) const { return save() + "/" + package; }

    /// Runs the tool on these directories.
    tool_result run(const std::vector<std::string> &arguments, const std::string &input = "") const;

private:
    temporary_directory root_;
};

/// Runs the tool with exactly these arguments.
tool_result run_tool(const std::vector<std::string> &arguments, const std::string &input);

/// The whole file, or nothing without the file.
std::optional<std::string> content(const std::string &path);
