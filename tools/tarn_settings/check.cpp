// The daemon's parser gives the verdict and the words; the walk over the rows says where.
#include "check.h"

#include "document_file.h"
#include "findings.h"

#include "platform/zu/log.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

/// The ERROR lines of one take.
struct take_outcome {
    int status;
    std::vector<std::string> errors;
};

take_outcome outcome_of(const document_taker &take, blob_attr *params)
{
    take_outcome outcome{};
    zu_log_set_error_listener(
        [](const char *message, void *priv) {
            static_cast<take_outcome *>(priv)->errors.emplace_back(message);
        },
        &outcome);
    outcome.status = take(params);
    zu_log_set_error_listener(nullptr, nullptr);
    return outcome;
}

void say(judgement &judged, const char *severity, const std::string &where, const std::string &what)
{
    judged.lines.push_back(std::string(severity) + ": " + on_one_line(where) +
                           (where.empty() ? "" : ": ") + on_one_line(what));
}

/// The members of the message beside `params`, which nobody reads.
void say_strangers(judgement &judged, blob_buf *message)
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
void say_errors(judgement &judged, const std::vector<std::string> &errors, const finding *cause)
{
    for (size_t i = 0; i < errors.size(); i++) {
        const size_t from_end = errors.size() - 1 - i; // 0: the outermost row's line
        std::string where;
        if (cause)
            where = i > 0 && from_end < cause->outer.size() ? cause->outer[from_end] : cause->path;
        say(judged, "error", where, errors[i]);
    }
}

void judge_params(judgement &judged, const document_kind &kind, blob_attr *params,
                  const document_taker &take)
{
    const take_outcome outcome = outcome_of(take, params);
    const std::vector<finding> findings = findings_of(*kind.level, params);
    const finding *cause = nullptr;
    for (const finding &each : findings)
        if (outcome.status != 0 && each.may_refuse && !cause)
            cause = &each;
    if (outcome.status != 0) {
        judged.result = VERDICT_REFUSED;
        say_errors(judged, outcome.errors, cause);
    } else {
        for (const std::string &error : outcome.errors)
            say(judged, "warning", "", error); // the daemon goes on all the same
    }
    for (const finding &each : findings)
        if (&each != cause)
            say(judged, "warning", each.path, each.what);
}

} // namespace

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

verdict check_file(const document_kind &kind, const std::string &path)
{
    std::string error;
    blob_buffer message;
    judgement judged = {VERDICT_REFUSED, {}};
    if (read_message(path, &message, error))
        judged = judge(kind, &message, kind.parse);
    else
        say(judged, "error", "", error);
    for (const std::string &line : judged.lines)
        printf("%s: %s\n", path.c_str(), line.c_str());
    return judged.result;
}
