// What a scenario may expect; docs/testing.md lists it.
#pragma once

#include <string>
#include <vector>

/// Holds `text` ("state WAN", "no log ERROR", ...)? `why` says what was found instead.
bool expect_holds(std::string text, std::string *why);
/// Are the entries since the mark, without log and neighbours, exactly these lines? Sets the mark.
bool expect_journal(const std::vector<std::string> &lines, std::string *why);
/// Is what has changed in UCI since expect_remember() exactly this, option by option? Remembers UCI
/// as it is now.
bool expect_changes(const std::vector<std::string> &lines, std::string *why);
/// From here on entries count.
void expect_mark();
/// What stage_amounts() says now is what may not grow.
void expect_remember();
