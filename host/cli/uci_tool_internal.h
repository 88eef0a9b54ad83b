// What the commands of the `uci` tool share.
#pragma once

#include "uci_tool.h"

/// Prints the context's error, unless messages are off; 1.
int uci_tool_failed(uci_tool &tool);
int uci_tool_failed(uci_tool &tool, int code);

/// Calls `act` for the package named, or for every package there is; 0 when none of it failed.
int uci_tool_each(uci_tool &tool, char **arguments, int count, int (*act)(uci_tool &, char *name));
