// The text of batch files, both ways. Only the form that is written is read: a command, a name and
// a value in single quotes, in which ' is written '\''.
#include "platform/zu/uci/batch_text.h"

#include <utility>

#include "platform/zu/uci/uci_internal.h"

struct verb {
    std::string_view word;
    ng_uci_action action;
};

constexpr verb VERBS[] = {
    {"set", uci_set_string},
    {"add_list", ng_uci_add_list},
    {"del_list", ng_uci_del_list},
    {"delete", ng_uci_delete_option},
};

constexpr std::string_view QUOTE_IN_QUOTES = "'\\''";

bool ng_uci_batch_format(const ng_uci_batch_command &command, std::string &line)
{
    if (!ng_uci_is_name(command.name.c_str()) || !ng_uci_is_value(command.value.c_str()))
        return false;
    for (const verb &v : VERBS)
        if (v.action == command.action)
            line = v.word;
    line += " " + command.name;
    if (command.action != ng_uci_delete_option)
        line.append("=").append(ng_uci_quoted(command.value));
    line += "\n";
    return true;
}

/// The text up to `separator`, which is taken away with it; all of it without one.
static std::string_view cut_until(std::string_view &text, char separator)
{
    const size_t end = text.find(separator);
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    return taken;
}

/// The rest of a line, which is to be one quoted value.
static bool parse_value(std::string_view text, std::string &value)
{
    if (text.size() < 2 || text.front() != '\'' || text.back() != '\'')
        return false;
    text.remove_prefix(1);
    text.remove_suffix(1);
    value.clear();
    for (size_t quote; (quote = text.find('\'')) != text.npos;) {
        value += text.substr(0, quote);
        if (text.substr(quote, QUOTE_IN_QUOTES.size()) != QUOTE_IN_QUOTES)
            return false;
        value += '\'';
        text.remove_prefix(quote + QUOTE_IN_QUOTES.size());
    }
    value += text;
    return value.find('\0') == value.npos && ng_uci_is_value(value.c_str());
}

static bool parse_line(std::string_view line, ng_uci_batch_command &command)
{
    const std::string_view word = cut_until(line, ' ');
    const verb *found = nullptr;
    for (const verb &v : VERBS)
        if (v.word == word)
            found = &v;
    if (!found)
        return false;
    command.action = found->action;
    const bool has_value = found->action != ng_uci_delete_option;
    if (has_value && line.find('=') == line.npos)
        return false;
    command.name = has_value ? cut_until(line, '=') : std::exchange(line, {});
    return command.name.find('\0') == command.name.npos && ng_uci_is_name(command.name.c_str()) &&
           (!has_value || parse_value(line, command.value));
}

int ng_uci_batch_parse(std::string_view text, std::vector<ng_uci_batch_command> &commands)
{
    for (int number = 1; !text.empty(); number++) {
        const std::string_view line = cut_until(text, '\n');
        if (line.empty() || line.front() == '#')
            continue;
        ng_uci_batch_command command{};
        if (!parse_line(line, command))
            return number;
        commands.push_back(std::move(command));
    }
    return 0;
}
