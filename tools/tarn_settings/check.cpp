// The daemon's parser gives the verdict and the words; the walk over the rows says where.
#include "check.h"

#include "document_file.h"
#include "findings.h"

#include "platform/zu/log.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

/// The ERROR lines of one parse.
struct parse_outcome {
    int status;
    std::vector<std::string> errors;
};

parse_outcome parse(const document_kind &kind, blob_attr *params)
{
    parse_outcome outcome{};
    zu_log_set_error_listener(
        [](const char *message, void *priv) {
            static_cast<parse_outcome *>(priv)->errors.emplace_back(message);
        },
        &outcome);
    outcome.status = kind.parse(params);
    zu_log_set_error_listener(nullptr, nullptr);
    return outcome;
}

/// One line whatever a document's texts hold, as in the daemon's log.
std::string on_one_line(const std::string &text)
{
    std::string line;
    for (const char c : text) {
        char escape[8];
        snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned char>(c));
        line += iscntrl(static_cast<unsigned char>(c)) ? std::string(escape) : std::string(1, c);
    }
    return line;
}

void print(const std::string &file, const char *severity, const std::string &where,
           const std::string &what)
{
    printf("%s: %s: %s%s%s\n", file.c_str(), severity, on_one_line(where).c_str(),
           where.empty() ? "" : ": ", on_one_line(what).c_str());
}

/// The members of the message beside `params`, which nobody reads.
bool print_strangers(const std::string &file, blob_buf *message)
{
    bool found = false;
    blob_attr *member;
    size_t rest;
    blob_for_each_attr(member, message->head, rest)
    {
        if (strcmp(blobmsg_name(member), "params") == 0)
            continue;
        print(file, "warning", blobmsg_name(member), "is not read");
        found = true;
    }
    return found;
}

/// Prints the daemon's lines, the first ones where the fault is, the following ones each at the row
/// around it that it speaks for.
void print_errors(const std::string &file, const std::vector<std::string> &errors,
                  const finding *cause)
{
    for (size_t i = 0; i < errors.size(); i++) {
        const size_t from_end = errors.size() - 1 - i; // 0: the outermost row's line
        std::string where;
        if (cause)
            where = i > 0 && from_end < cause->outer.size() ? cause->outer[from_end] : cause->path;
        print(file, "error", where, errors[i]);
    }
}

verdict check_params(const document_kind &kind, const std::string &file, blob_attr *params)
{
    const parse_outcome outcome = parse(kind, params);
    const std::vector<finding> findings = findings_of(*kind.level, params);
    const finding *cause = nullptr;
    for (const finding &each : findings)
        if (outcome.status != 0 && each.may_refuse && !cause)
            cause = &each;
    if (outcome.status != 0)
        print_errors(file, outcome.errors, cause);
    for (const finding &each : findings)
        if (&each != cause)
            print(file, "warning", each.path, each.what);
    if (outcome.status != 0)
        return VERDICT_REFUSED;
    return findings.empty() ? VERDICT_CLEAN : VERDICT_ODD;
}

} // namespace

verdict check_file(const document_kind &kind, const std::string &path)
{
    std::string text, error;
    blob_buffer message;
    if (!read_whole(path, text, error) || !message_of_json(text, &message, error)) {
        print(path, "error", "", error);
        return VERDICT_REFUSED;
    }
    const bool strangers = print_strangers(path, &message);
    blob_attr *params = params_of(&message);
    if (!params) {
        print(path, "error", "params", "must be there, and a table");
        return VERDICT_REFUSED;
    }
    const verdict judged = check_params(kind, path, params);
    return judged == VERDICT_CLEAN && strangers ? VERDICT_ODD : judged;
}
