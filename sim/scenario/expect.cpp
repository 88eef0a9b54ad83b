// Expectations; see expect.h.
#include "expect.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <glob.h>
#include <utility>

#include "script.h"
#include "settled.h"
#include "stage.h"
#include "timeline.h"

/// Memory comes and goes by pages of the allocator's choice.
constexpr long MEMORY_TOLERANCE_KIB = 64;

static size_t mark;
static std::map<std::string, long> remembered;
static std::map<std::string, std::string> configured; ///< when it was remembered

static const std::map<std::string, std::string> STATES = {
    {"NONE", "TARN_NET_UPSTREAM_NONE"},
    {"WAN", "TARN_NET_UPSTREAM_WAN_STATE"},
    {"MESH", "TARN_NET_UPSTREAM_MESH_STATE"},
    {"LONELY", "TARN_NET_LONELY_ORPHAN_STATE"},
};

static bool same(const std::string &found, const std::string &wanted, std::string *why)
{
    *why = "found '" + found + "'";
    return found == wanted;
}

static std::string output_of(const std::string &command)
{
    std::string output;
    stage_run(command, &output);
    while (!output.empty() && output.back() == '\n')
        output.pop_back();
    return output;
}

static bool wired_member(const std::string &name, const std::string &wanted, std::string *why)
{
    return same(json_member(stage_ask("qnet.wired", "dump_state"), name), wanted, why);
}

static bool state_is(const std::string &wanted, std::string *why)
{
    return wired_member("upstream_state", STATES.at(wanted), why);
}

static bool verdict_is(const std::string &wanted, std::string *why)
{
    return wired_member("result", STATES.at(wanted), why);
}

static bool uplink_is(const std::string &wanted, std::string *why)
{
    return wired_member("uplink_iface", wanted, why);
}

static bool bridge_is(const std::string &wanted, std::string *why)
{
    return wired_member("wired_uplink_bridge", wanted == "none" ? "" : wanted, why);
}

static bool failures_are(const std::string &wanted, std::string *why)
{
    return wired_member("test_failures", wanted, why);
}

static bool tolerance_is(const std::string &wanted, std::string *why)
{
    return wired_member("failure_tolerance", wanted, why);
}

/// "PACKAGE.SECTION.OPTION VALUE", a list's values with blanks; without a VALUE it must be missing.
static bool uci_is(const std::string &text, std::string *why)
{
    std::string wanted = text;
    const std::string option = cut_word(&wanted);
    return same(output_of("uci -q get " + option), wanted, why);
}

/// The rules at the upstream's priority: "from all lookup 10", several joined by "; ".
static bool rules_are(const std::string &wanted, std::string *why)
{
    return same(output_of("ip rule show priority 500 | sed 's/^500:[[:space:]]*//; s/ *$//' | "
                          "paste -sd ';' | sed 's/;/; /g'"),
                wanted, why);
}

/// The names of the flags that are on, in alphabetical order.
static bool leds_are(const std::string &wanted, std::string *why)
{
    std::vector<std::string> on;
    for (const auto &file : std::filesystem::directory_iterator("/tmp/led_flags")) {
        char value = '0';
        std::ifstream(file.path()) >> value;
        if (value == '1')
            on.push_back(file.path().filename().string());
    }
    std::sort(on.begin(), on.end());
    std::string names;
    for (const std::string &name : on)
        names += (names.empty() ? "" : " ") + name;
    return same(names, wanted, why);
}

static long count_since_mark(kind what, const std::string &text)
{
    const auto &all = timeline_entries();
    return std::count_if(all.begin() + static_cast<long>(mark), all.end(), [&](const entry &one) {
        return one.what == what && one.text.find(text) != std::string::npos;
    });
}

/// "log TEXT", "command TEXT", ...: an entry since the mark holds the text.
static bool entry_holds(kind what, const std::string &text, std::string *why)
{
    *why = std::string("no such ") + kind_name(what) + " since the mark";
    return count_since_mark(what, text) > 0;
}

static const std::map<std::string, kind> KINDS = {
    {"log", kind::log},          {"command", kind::command}, {"event", kind::event},
    {"commit", kind::commit},    {"rule", kind::rule},       {"led", kind::led},
    {"stats", kind::statistics}, {"ended", kind::ended},     {"peer", kind::peer},
};

/// "count N KIND TEXT": that many entries since the mark.
static bool count_is(const std::string &text, std::string *why)
{
    std::string rest = text;
    const std::string wanted = cut_word(&rest);
    const kind what = KINDS.at(cut_word(&rest));
    return same(std::to_string(count_since_mark(what, rest)), wanted, why);
}

/// "answer OBJECT METHOD TEXT": the call's answer holds the text.
static bool answer_holds(const std::string &text, std::string *why)
{
    std::string rest = text;
    const std::string object = cut_word(&rest), method = cut_word(&rest);
    *why = stage_ask(object, method);
    return why->find(rest) != std::string::npos;
}

static bool run_succeeds(const std::string &command, std::string *why)
{
    *why = "";
    return stage_run(command, why) == 0;
}

static bool file_exists(const std::string &pattern, std::string *why)
{
    glob_t found;
    const bool exists = glob(pattern.c_str(), 0, nullptr, &found) == 0;
    *why = exists ? found.gl_pathv[0] : "no file fits";
    globfree(&found);
    return exists;
}

static bool growth(const std::string &, std::string *why)
{
    *why = "";
    for (const auto &[name, amount] : stage_amounts()) {
        const long more = amount - remembered[name];
        if (more > (name.starts_with("resident") ? MEMORY_TOLERANCE_KIB : 0))
            *why += name + ": " + std::to_string(remembered[name]) + ", then " +
                    std::to_string(amount) + "; ";
    }
    return !why->empty();
}

/// "loop under 200ms": the daemon's longest callback since the scenario's start.
static bool loop_is(const std::string &text, std::string *why)
{
    const double longest = stage_longest_callback().ms;
    *why = "the longest callback took " + std::to_string(longest) + " ms";
    return text.starts_with("under ") && longest < strtod(text.c_str() + 6, nullptr);
}

static const std::map<std::string, bool (*)(const std::string &, std::string *)> EXPECTATIONS = {
    {"state", state_is},   {"verdict", verdict_is},    {"uplink", uplink_is},
    {"bridge", bridge_is}, {"failures", failures_are}, {"tolerance", tolerance_is},
    {"uci", uci_is},       {"rules", rules_are},       {"leds", leds_are},
    {"count", count_is},   {"answer", answer_holds},   {"run", run_succeeds},
    {"growth", growth},    {"loop", loop_is},          {"file", file_exists},
    {"settled", settled},
};

static bool is_compared(const entry &one)
{
    return one.what == kind::command || one.what == kind::event || one.what == kind::commit ||
           one.what == kind::rule || one.what == kind::led;
}

static std::string listed(const std::vector<std::string> &lines, size_t different)
{
    std::string text;
    for (size_t i = 0; i < lines.size(); i++)
        text += (i == different ? "  > " : "    ") + lines[i] + "\n";
    return text;
}

static bool same_lines(const std::vector<std::string> &found,
                       const std::vector<std::string> &wanted, std::string *why)
{
    const auto shorter = std::min(found.size(), wanted.size());
    size_t different = 0;
    while (different < shorter && found[different] == wanted[different])
        different++;
    *why = "expected\n" + listed(wanted, different) + "  found\n" + listed(found, different);
    return found == wanted;
}

/// Can it be expected? With a misspelt state or kind "no" in front of it would always hold.
static bool is_known(std::string text)
{
    const std::string word = cut_word(&text);
    if (word == "state" || word == "verdict")
        return STATES.contains(text);
    if (word == "count") {
        (void)cut_word(&text); // the number
        return KINDS.contains(cut_word(&text));
    }
    return EXPECTATIONS.contains(word) || KINDS.contains(word);
}

std::string json_member(const std::string &json, const std::string &name)
{
    const std::string key = "\"" + name + "\":";
    const size_t at = json.find(key);
    if (at == std::string::npos)
        return "";
    size_t begin = at + key.size();
    const bool quoted = json[begin] == '"';
    begin += quoted ? 1 : 0;
    return json.substr(begin, json.find_first_of(quoted ? "\"" : ",}", begin) - begin);
}

bool expect_holds(std::string text, std::string *why)
{
    std::string rest = text;
    const std::string word = cut_word(&rest);
    if (word == "no" && is_known(rest)) {
        const bool holds = expect_holds(rest, why);
        *why = "it holds: " + *why;
        return !holds;
    }
    if (!is_known(text)) {
        *why = "there is no such expectation";
        return false;
    }
    if (const auto found = EXPECTATIONS.find(word); found != EXPECTATIONS.end())
        return found->second(rest, why);
    return entry_holds(KINDS.at(word), rest, why);
}

bool expect_journal(const std::vector<std::string> &lines, std::string *why)
{
    std::vector<std::string> found;
    const auto &all = timeline_entries();
    for (size_t i = mark; i < all.size(); i++) {
        if (is_compared(all[i]))
            found.push_back(std::string(kind_name(all[i].what)) + " " + all[i].text);
    }
    expect_mark();
    return same_lines(found, lines, why);
}

bool expect_changes(const std::vector<std::string> &lines, std::string *why)
{
    std::vector<std::string> found;
    const auto now = stage_configuration();
    auto all = configured;
    all.insert(now.begin(), now.end());
    for (const auto &[name, value] : all) {
        const auto before = std::as_const(configured).find(name);
        const auto after = now.find(name);
        const std::string was = before != configured.end() ? before->second : "nothing";
        const std::string is = after != now.end() ? after->second : "nothing";
        if (was != is)
            found.push_back(name + " " + was + " -> " + is);
    }
    configured = now;
    return same_lines(found, lines, why);
}

void expect_mark()
{
    mark = timeline_entries().size();
}

size_t expect_marked()
{
    return mark;
}

void expect_remember()
{
    remembered = stage_amounts();
    configured = stage_configuration();
}

const std::map<std::string, std::string> &expect_remembered()
{
    return configured;
}
