// What happens to the node, on one time line: commands it runs, events on the bus, UCI commits,
// kernel rules, LED flags and log lines.
//
// Nothing tells the order of things seen through different sources but seeing each at once. So
// this process, and the broker, run with real-time priority on the guest's single processor: every
// source is read before the daemon goes on.
#pragma once

#include <span>
#include <string>
#include <vector>

/// What an entry is about. `statistics` are batctl's look-ups, `peer` the neighbours' journal,
/// `ended` a program of the node that ended.
enum class kind { command, statistics, event, commit, rule, led, log, peer, ended, story };

struct entry {
    double at; ///< seconds since the scenario's start
    kind what;
    std::string text; ///< without the kind's name
};

/// Everything so far, in order.
const std::vector<entry> &timeline_entries();
/// Those from that index on.
std::span<const entry> timeline_since(size_t index);
/// The name of a kind, as scenarios and the narration write it.
const char *kind_name(kind what);
/// Follows files and kernel; to be called once, inside the loop's life. False with a word on
/// standard error when a source cannot be had.
bool timeline_start();
/// Follows the bus, too; comes back by itself after the broker was away.
void timeline_follow_bus();
/// A line of the scenario itself.
void timeline_tell(const std::string &text);
/// Seconds since the start, now and at a time since boot.
double timeline_now();
double timeline_at(double boot_s);
