// The daemon's parser gives the verdict and the words; the walk over the rows says where.
#include "check.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "document_file.h"
#include "findings.h"
#include "json_text.h"
#include "lint.h"
#include "platform/zu/log.h"

/// The ERROR lines of one take, each once: what a platform lacks is said for each element.
struct take_outcome {
    int status;
    std::vector<std::string> errors;
};

static take_outcome outcome_of(const document_taker &take, blob_attr *params)
{
    take_outcome outcome{};
    zu_log_set_error_listener(
        [](const char *message, void *priv) {
            std::vector<std::string> &errors = static_cast<take_outcome *>(priv)->errors;
            if (std::find(errors.begin(), errors.end(), message) == errors.end())
                errors.emplace_back(message);
        },
        &outcome);
    outcome.status = take(params);
    zu_log_set_error_listener(nullptr, nullptr);
    return outcome;
}

static void say(judgement &judged, const char *severity, const std::string &where,
                const std::string &what)
{
    judged.lines.push_back(std::string(severity) + ": " + on_one_line(where) +
                           (where.empty() ? "" : ": ") + on_one_line(what));
}

/// The members of the message beside `params`, which nobody reads.
static void say_strangers(judgement &judged, blob_buf *message)
{
    blob_attr *member;
    size_t rest;
    blob_for_each_attr(member, message->head, rest)
    {
        if (strcmp(blobmsg_name(member), "params") == 0)
            continue;
        say(judged, "warning", blobmsg_name(member), "is not read");
    }
}

/// The daemon's lines, the first ones where the fault is, the following ones each at the row around
/// it that it speaks for.
static void say_errors(judgement &judged, const std::vector<std::string> &errors,
                       const finding *cause)
{
    for (size_t i = 0; i < errors.size(); i++) {
        const size_t from_end = errors.size() - 1 - i; // 0: the outermost row's line
        std::string where;
        if (cause)
            where = i > 0 && from_end < cause->outer.size() ? cause->outer[from_end] : cause->path;
        say(judged, "error", where, errors[i]);
    }
}

/// True when a daemon's line was made from one of these formats, as far as their first value.
static bool was_said_with(const std::string &line, std::string_view formats)
{
    while (!formats.empty()) {
        const size_t end = formats.find("; ");
        const std::string_view format = formats.substr(0, end);
        if (line.starts_with(format.substr(0, format.find('%'))))
            return true;
        formats.remove_prefix(end == formats.npos ? formats.size() : end + 2);
    }
    return false;
}

/// The finding that the daemon's first line is about; it may be of another mind about what comes
/// first.
static const finding *cause_of(const std::vector<std::string> &errors,
                               const std::vector<finding> &findings)
{
    const finding *first = nullptr;
    for (const finding &each : findings) {
        if (!each.refusal)
            continue;
        if (!errors.empty() && was_said_with(errors.front(), each.refusal))
            return &each;
        first = first ? first : &each;
    }
    return first;
}

static void judge_params(judgement &judged, const document_kind &kind, blob_attr *params,
                         const document_taker &take)
{
    const take_outcome outcome = outcome_of(take, params);
    const std::vector<finding> findings = findings_of(*kind.level, params);
    const finding *cause = outcome.status != 0 ? cause_of(outcome.errors, findings) : nullptr;
    if (outcome.status != 0) {
        judged.result = VERDICT_REFUSED;
        if (cause)
            say(judged, "error", cause->path, cause->what);
        say_errors(judged, outcome.errors, cause);
    } else {
        for (const std::string &error : outcome.errors)
            say(judged, "warning", "", error); // the daemon goes on all the same
    }
    for (const finding &each : findings)
        if (&each != cause)
            say(judged, "warning", each.path, each.what);
}

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

judgement judge(const document_kind &kind, blob_buf *message, const document_taker &take)
{
    judgement judged;
    say_strangers(judged, message);
    if (blob_attr *params = params_of(message)) {
        judge_params(judged, kind, params, take);
    } else {
        judged.result = VERDICT_REFUSED;
        say(judged, "error", "params", "must be there, and a table");
    }
    if (judged.result == VERDICT_CLEAN && !judged.lines.empty())
        judged.result = VERDICT_ODD;
    return judged;
}

static void say_doubts(judgement &judged, const std::vector<finding> &doubts)
{
    for (const finding &each : doubts)
        say(judged, "lint", each.path, each.what);
    if (judged.result == VERDICT_CLEAN && !doubts.empty())
        judged.result = VERDICT_ODD;
}

verdict check_file(const document_kind &kind, const std::string &path)
{
    std::string text, error;
    blob_buffer message;
    judgement judged = {VERDICT_REFUSED, {}};
    if (read_whole(path, text, error) && message_of_json(text, &message, error)) {
        judged = judge(kind, &message, kind.parse);
        say_doubts(judged, json_repeated_keys(text));
        if (blob_attr *params = params_of(&message))
            say_doubts(judged, lint_of(*kind.level, params));
    } else {
        say(judged, "error", "", error);
    }
    for (const std::string &line : judged.lines)
        printf("%s: %s\n", path.c_str(), line.c_str());
    return judged.result;
}
