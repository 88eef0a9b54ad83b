// The commands of the `uci` tool. Each gives its exit status and prints its own message.
#pragma once

#include <uci.h>

struct uci_tool {
    uci_context *ctx;
    const char *name; ///< begins every message
    FILE *input;      ///< of batch and import
    const char *delimiter;
    bool merge, quiet, generated_names;
    bool state_only; ///< commit writes nothing
};

int uci_tool_get(uci_tool &tool, char **arguments, int count);
int uci_tool_set(uci_tool &tool, char **arguments, int count);
int uci_tool_add(uci_tool &tool, char **arguments, int count);
int uci_tool_add_list(uci_tool &tool, char **arguments, int count);
int uci_tool_del_list(uci_tool &tool, char **arguments, int count);
int uci_tool_delete(uci_tool &tool, char **arguments, int count);
int uci_tool_rename(uci_tool &tool, char **arguments, int count);
int uci_tool_reorder(uci_tool &tool, char **arguments, int count);
int uci_tool_revert(uci_tool &tool, char **arguments, int count);
int uci_tool_show(uci_tool &tool, char **arguments, int count);
int uci_tool_export(uci_tool &tool, char **arguments, int count);
int uci_tool_changes(uci_tool &tool, char **arguments, int count);
int uci_tool_commit(uci_tool &tool, char **arguments, int count);
int uci_tool_import(uci_tool &tool, char **arguments, int count);

/// Forgets all packages, so that the next command reads the files.
void uci_tool_unload_all(uci_tool &tool);
