// What a scenario may expect; docs/testing.md lists it.
#pragma once

#include <cstddef>
#include <map>
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
/// The index of the first entry since the mark.
size_t expect_marked();
/// The member of that name in JSON text, the first at any depth, without its quotes; "" when
/// missing.
std::string json_member(const std::string &json, const std::string &name);
/// What stage_amounts() says now is what may not grow.
void expect_remember();
/// UCI as it was then; empty when nothing was remembered.
const std::map<std::string, std::string> &expect_remembered();
