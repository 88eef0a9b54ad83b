// sim_scenario FILE: plays a scenario on the simulated node, inside its sandbox (sim/node play).
// Narrates on standard output; exit status 0 when every expectation held.
//
// A statement is "start", "advance", "within", "repeat", "mark", "remember", "break", "mend",
// "run", "tell", "try", "uci", "kernel", "expect", or else something around the node that
// sim/node.d/surroundings changes.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libubus.h>

#include "expect.h"
#include "script.h"
#include "stage.h"
#include "timeline.h"

constexpr long LOOKS = 120; ///< of "within", between the two bounds
constexpr long LOOK_AGAIN_LEAST_MS = 500, LOOK_AGAIN_MOST_MS = 2000;
constexpr size_t SHOWN_AFTER_FAILURE = 60;

static int expectations;
static bool endings_are_meant; ///< a program of the node was ended on purpose
static bool failing_is_fine;   ///< the statement is one of "try"

static bool fail(const statement &said, const std::string &why)
{
    if (failing_is_fine)
        return false;
    printf("FAILED  line %d: %s %s\n  %s\n", said.line, said.word.c_str(), said.rest.c_str(),
           why.c_str());
    return false;
}

static std::string node_script(const char *name)
{
    return std::string("\"$TARN_SOURCE/sim/node.d/") + name + "\"";
}

static bool run(const statement &said, const std::string &command)
{
    std::string output;
    return stage_run(command, &output) == 0 || fail(said, output);
}

/// What the command prints becomes part of the story.
static bool tell(const statement &said)
{
    std::string output;
    const bool ran = stage_run(said.rest, &output) == 0;
    timeline_tell(output.substr(0, output.find_last_not_of('\n') + 1));
    return ran || fail(said, output);
}

static bool start(const statement &said)
{
    if (!run(said, node_script("programs")))
        return false;
    timeline_follow_bus();
    return true;
}

static bool advance(const statement &said)
{
    const long ms = parse_duration_ms(said.rest);
    if (ms < 0)
        return fail(said, "that is no time");
    stage_advance_ms(ms);
    return true;
}

static bool within(const statement &said)
{
    std::string wanted = said.rest, why;
    const long limit_ms = parse_duration_ms(cut_word(&wanted));
    if (limit_ms < 0)
        return fail(said, "that is no time");
    const long again_ms = std::clamp(limit_ms / LOOKS, LOOK_AGAIN_LEAST_MS, LOOK_AGAIN_MOST_MS);
    expectations++;
    for (long waited = 0; waited <= limit_ms; waited += again_ms) {
        if (expect_holds(wanted, &why))
            return true;
        stage_advance_ms(again_ms);
    }
    return fail(said, why);
}

static bool expect(const statement &said)
{
    std::string why;
    expectations++;
    const bool holds = said.rest == "journal"   ? expect_journal(said.block, &why)
                       : said.rest == "changes" ? expect_changes(said.block, &why)
                                                : expect_holds(said.rest, &why);
    return holds || fail(said, why);
}

/// "uci set X=Y", committed at once.
static bool change_uci(const statement &said)
{
    std::string words = said.rest;
    cut_word(&words);
    const std::string package = words.substr(0, words.find_first_of(".= "));
    return run(said, "uci " + said.rest + " && uci commit " + package);
}

static bool play(const std::vector<statement> &script);

static bool repeat(const statement &said)
{
    const int times = atoi(said.rest.c_str());
    if (times < 1)
        return fail(said, "that is no number of times");
    for (int i = 0; i < times; i++) {
        if (!play(said.statements))
            return false;
    }
    return true;
}

/// "try STATEMENT": what it asks for may be unable to hear just now.
static bool try_one(const statement &said)
{
    statement tried = said;
    tried.word = cut_word(&tried.rest);
    failing_is_fine = true;
    endings_are_meant = true;
    (void)play({tried});
    failing_is_fine = false;
    return true;
}

static bool change_surroundings(const statement &said)
{
    const auto has = [&](const char *ending) { return said.rest.find(ending) != said.rest.npos; };
    if (has("restart") || has("die") || has("kill"))
        endings_are_meant = true;
    return run(said, node_script("surroundings") + " " + said.word + " " + said.rest);
}

static bool play_one(const statement &said)
{
    const std::string &word = said.word;
    if (word == "title")
        return true;
    if (word != "expect" && word != "repeat" && word != "try")
        timeline_tell(word + " " + said.rest);
    if (word == "start")
        return start(said);
    if (word == "advance")
        return advance(said);
    if (word == "within")
        return within(said);
    if (word == "expect")
        return expect(said);
    if (word == "repeat")
        return repeat(said);
    if (word == "try")
        return try_one(said);
    if (word == "uci")
        return change_uci(said);
    if (word == "run")
        return run(said, said.rest);
    if (word == "tell")
        return tell(said);
    if (word == "kernel")
        return stage_run_program("ip " + said.rest) == 0 || fail(said, "ip refused it");
    if (word == "break" || word == "mend")
        return (word == "break" ? stage_break : stage_mend)(said.rest) ||
               fail(said, strerror(errno));
    if (word == "mark")
        expect_mark();
    else if (word == "remember")
        expect_remember();
    else
        return change_surroundings(said);
    return true;
}

static bool play(const std::vector<statement> &script)
{
    for (const statement &said : script) {
        if (!play_one(said))
            return false;
    }
    return true;
}

static bool nothing_ended()
{
    if (endings_are_meant)
        return true;
    for (const entry &one : timeline_entries()) {
        if (one.what != kind::ended)
            continue;
        printf("FAILED  a program of the node ended: %s\n", one.text.c_str());
        return false;
    }
    return true;
}

static void show_end_of_timeline()
{
    const auto &all = timeline_entries();
    const size_t from = all.size() > SHOWN_AFTER_FAILURE ? all.size() - SHOWN_AFTER_FAILURE : 0;
    printf("  the last of what happened, with all of the log:\n");
    for (size_t i = from; i < all.size(); i++)
        printf("%9.2f  %-8s %s\n", all[i].at, kind_name(all[i].what), all[i].text.c_str());
}

static void show_longest_callback()
{
    const stage_callback longest = stage_longest_callback();
    printf("longest loop callback: %.1f ms, %.1f of them waiting for commands, until %.2f\n",
           longest.ms, longest.commands_ms, timeline_at(longest.end_s));
}

int main(int argc, char **argv)
{
    if (strcmp(argv[0], "sh") == 0 || strcmp(argv[0], "/bin/sh") == 0)
        raise(SIGKILL); // see stage_break()
    std::vector<statement> script;
    std::string error;
    if (argc != 2) {
        fprintf(stderr, "usage: sim_scenario FILE\n");
        return 2;
    }
    if (!script_read(argv[1], &script, &error)) {
        fprintf(stderr, "%s: %s\n", argv[1], error.c_str());
        return 2;
    }
    uloop_init();
    if (!stage_bound_tmp() || !timeline_start())
        return 2;
    const bool passed = play(script) && nothing_ended();
    show_longest_callback();
    if (!passed)
        show_end_of_timeline();
    else
        printf("%d expectations held\n", expectations);
    return passed ? 0 : 1;
}
