// One part of the screen per function, from top to bottom. What is not known is left out.
#include "screen.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>

constexpr char GOOD[] = "\033[32m";
constexpr char BAD[] = "\033[31m";
constexpr char PLAIN[] = "\033[0m";

/// Lines that are cut where the screen ends.
struct screen {
    std::string text;
    size_t columns;
    bool colour;

    void line(const char *tone, const char *format, ...) __attribute__((format(printf, 3, 4)));
    void wrapped(const std::string &indent, const std::string &words);
};

/// Bytes of the first `columns` characters.
static size_t cut(const std::string &text, size_t columns)
{
    size_t at = 0;
    for (size_t seen = 0; at < text.size(); at++) {
        const bool begins = (static_cast<unsigned char>(text[at]) & 0xc0) != 0x80;
        if (begins && seen++ == columns)
            break;
    }
    return at;
}

void screen::line(const char *tone, const char *format, ...)
{
    char *formatted = nullptr;
    va_list args;
    va_start(args, format);
    if (vasprintf(&formatted, format, args) < 0)
        formatted = nullptr;
    va_end(args);
    std::string whole(formatted ? formatted : "");
    free(formatted);
    whole.resize(cut(whole, columns));
    text += (tone && colour ? tone + whole + PLAIN : whole) + "\n";
}

void screen::wrapped(const std::string &indent, const std::string &words)
{
    std::string rest = words;
    const size_t room = columns > indent.size() + 8 ? columns - indent.size() : 8;
    while (rest.size() > room) {
        size_t end = rest.rfind(' ', room);
        if (end == std::string::npos || end == 0)
            end = room;
        line(nullptr, "%s%s", indent.c_str(), rest.substr(0, end).c_str());
        rest.erase(0, rest[end] == ' ' ? end + 1 : end);
    }
    line(nullptr, "%s%s", indent.c_str(), rest.c_str());
}

/// "42 s", "7 min", "3 h 5 min", "2 d 4 h".
static std::string duration(int64_t seconds)
{
    char text[48];
    if (seconds < 120)
        snprintf(text, sizeof text, "%lld s",
                 static_cast<long long>(std::max<int64_t>(seconds, 0)));
    else if (seconds < 3600)
        snprintf(text, sizeof text, "%lld min", static_cast<long long>(seconds / 60));
    else if (seconds < 86400)
        snprintf(text, sizeof text, "%lld h %lld min", static_cast<long long>(seconds / 3600),
                 static_cast<long long>(seconds / 60 % 60));
    else
        snprintf(text, sizeof text, "%lld d %lld h", static_cast<long long>(seconds / 86400),
                 static_cast<long long>(seconds / 3600 % 24));
    return text;
}

static std::string ago(int64_t when)
{
    return duration(time(nullptr) - when) + " ago";
}

// ---- the parts

static const char *upstream_words(const std::string &state)
{
    const struct {
        const char *name, *words;
    } known[] = {
        {"TARN_NET_UPSTREAM_NONE", "none yet"},
        {"TARN_NET_UPSTREAM_WAN_STATE", "the wire"},
        {"TARN_NET_UPSTREAM_MESH_STATE", "the mesh"},
        {"TARN_NET_LONELY_ORPHAN_STATE", "none (lonely)"},
    };
    for (const auto &row : known)
        if (state == row.name)
            return row.words;
    return "not known";
}

static void show_upstream(screen &out, json_object *facts)
{
    json_object *wired = facts_get(facts, {"wired", "state"});
    const std::string state = facts_text(wired, {"upstream_state"});
    const std::string iface = facts_text(wired, {"uplink_iface"});
    const int64_t since = facts_int(facts, {"checkin", "upstream", "since"});
    const bool leads_out =
        state.find("WAN") != std::string::npos || state.find("MESH") != std::string::npos;
    out.line(leads_out ? GOOD : BAD, "upstream   %s%s%s%s%s", upstream_words(state),
             leads_out && !iface.empty() ? " over " : "", leads_out ? iface.c_str() : "",
             since > 0 ? ", for " : "", since > 0 ? duration(time(nullptr) - since).c_str() : "");
    const int64_t failures = facts_int(wired, {"test_failures"});
    out.line(failures > 0 ? BAD : nullptr, "           %lld of %lld failures tolerated",
             static_cast<long long>(failures),
             static_cast<long long>(
                 facts_int(facts, {"wired", "settings", "inet_test", "failure_tolerance"})));
    json_object *timers = facts_get(wired, {"timers"});
    if (!timers)
        return;
    json_object_object_foreach(timers, name, left) out.line(
        nullptr, "           %s in %s", name, duration(json_object_get_int64(left)).c_str());
}

static void show_tests(screen &out, json_object *facts)
{
    json_object *tests = facts_get(facts, {"wired", "state", "tests"});
    for (size_t i = 0; i < facts_count(tests); i++) {
        json_object *test = json_object_array_get_idx(tests, i);
        const bool passed = facts_is(test, {"passed"});
        const std::string outcome = passed ? "answers" : facts_text(test, {"error"});
        out.line(passed ? nullptr : BAD, "  %-11s %-34.34s %s, %s",
                 facts_text(test, {"interface"}).c_str(), facts_text(test, {"target"}).c_str(),
                 outcome.c_str(), ago(facts_int(test, {"time"})).c_str());
    }
}

static void show_mesh(screen &out, json_object *facts)
{
    json_object *mesh = facts_get(facts, {"checkin", "mesh"});
    if (!mesh)
        return;
    std::string speed = facts_text(mesh, {"gateway_speed"}, "?");
    std::replace(speed.begin(), speed.end(), '-', ' '); // "13.72-MB/s"
    out.line(nullptr, "mesh       gateway %s, quality %s, %s ms, %s",
             facts_text(mesh, {"gateway"}, "?").c_str(),
             facts_text(mesh, {"gateway_quality"}, "?").c_str(),
             facts_text(mesh, {"gateway_latency"}, "?").c_str(), speed.c_str());
}

/// "Contoso (8), Guests (2)": the SSIDs that are on, with who joined them over this radio.
static std::string ssids_of(json_object *facts, json_object *radio)
{
    std::map<int64_t, int> joined;
    json_object *stations = facts_get(radio, {"stations"});
    for (size_t i = 0; i < facts_count(stations); i++)
        joined[facts_int(json_object_array_get_idx(stations, i), {"ssid_index"})]++;
    std::string words;
    json_object *ssids = facts_get(facts, {"wifi", "settings", "ssids"});
    for (size_t i = 0; i < facts_count(ssids); i++) {
        json_object *ssid = json_object_array_get_idx(ssids, i);
        if (!facts_is(ssid, {"enable"}))
            continue;
        words += (words.empty() ? "" : ", ") + facts_text(ssid, {"name"}) + " (" +
                 std::to_string(joined[facts_int(ssid, {"index"})]) + ")";
    }
    return words;
}

static std::string operation_of(json_object *radio)
{
    if (!facts_get(radio, {"frequency"}))
        return facts_is(radio, {"enable"}) ? "on no channel" : "off";
    std::string words = "channel " + facts_text(radio, {"channel"}, "?");
    if (facts_get(radio, {"width"}))
        words += ", " + facts_text(radio, {"width"}) + " MHz";
    if (facts_get(radio, {"txpower"}))
        words += ", " + facts_text(radio, {"txpower"}) + " dBm";
    if (facts_get(radio, {"utilization"})) {
        char busy[24];
        snprintf(busy, sizeof busy, ", %.0f %% busy",
                 100 * facts_number(radio, {"utilization", "busy"}));
        words += busy;
    }
    return words;
}

static void show_radios(screen &out, json_object *facts)
{
    json_object *radios = facts_get(facts, {"checkin", "radios"});
    for (size_t i = 0; i < facts_count(radios); i++) {
        json_object *radio = json_object_array_get_idx(radios, i);
        out.line(nullptr, "radio %-4s %-9s %s", facts_text(radio, {"index"}).c_str(),
                 facts_text(radio, {"band"}).c_str(), operation_of(radio).c_str());
        const std::string ssids = ssids_of(facts, radio);
        if (facts_is(radio, {"enable"}) && !ssids.empty() &&
            facts_text(radio, {"band"}) != "scanning")
            out.line(nullptr, "           %s", ssids.c_str());
    }
}

static void show_held_back(screen &out, json_object *facts)
{
    json_object *delayed = facts_get(facts, {"checkin", "delayed"});
    if (facts_text(delayed, {"state"}) == "pending") {
        out.line(nullptr, "delayed    radio settings apply in %s; to end the wait:",
                 duration(facts_int(delayed, {"seconds_left"})).c_str());
        out.line(nullptr, "           ubus call qnet.wifi end_delayed_wireless");
    } else if (delayed)
        out.line(nullptr, "delayed    radio settings wait for the cloud to confirm the push");
    if (facts_get(facts, {"checkin", "power_negotiated"}) &&
        !facts_is(facts, {"checkin", "power_negotiated"}))
        out.line(BAD,
                 "power      the negotiation over LLDP runs; until its end the radios are off");
    if (facts_get(facts, {"checkin", "override"}))
        out.line(BAD, "override   %s: documents are refused until the cloud knows",
                 facts_text(facts, {"checkin", "override", "reason"}).c_str());
    if (facts_is(facts, {"checkin", "dfs", "event_detected"}))
        out.line(BAD, "radar      was seen");
}

static void show_health(screen &out, json_object *facts)
{
    if (!facts_get(facts, {"health"}))
        return;
    json_object *problems = facts_get(facts, {"health", "problems"});
    if (facts_count(problems) == 0)
        out.line(GOOD, "health     no problem known");
    for (size_t i = 0; i < facts_count(problems); i++) {
        json_object *problem = json_object_array_get_idx(problems, i);
        out.line(BAD, "%-10s %s, for %s", i == 0 ? "health" : "",
                 (facts_text(problem, {"id"}) + " " + facts_text(problem, {"object"})).c_str(),
                 duration(time(nullptr) - facts_int(problem, {"since"})).c_str());
        out.wrapped("           ", facts_text(problem, {"advice"}));
    }
}

std::string screen_of(json_object *facts, size_t columns, bool colour)
{
    screen out{{}, columns, colour};
    show_upstream(out, facts);
    show_tests(out, facts);
    show_mesh(out, facts);
    show_radios(out, facts);
    show_held_back(out, facts);
    show_health(out, facts);
    return out.text;
}
