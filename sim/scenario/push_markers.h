// Which push is in force? A push of the chaos scenarios puts its number, the node_id, into options
// of every package, so that a push half made, forgotten or refused and yet in force shows.
#pragma once

#include <map>
#include <string>

/// The wireless settings number `number` as JSON text. `delayed`: the radios' part waits until the
/// cloud has confirmed the push, and then for seven minutes.
std::string push_marked(int number, bool delayed);
/// The same with a fault, for which the daemon must refuse it.
std::string push_refusable(int number);

/// The channel that it gives the radio of 2.4 GHz.
int push_channel(int number);
/// Does it bridge its second SSID into the wired LAN?
bool push_is_bridged(int number);
/// Does it put its third SSID into VLAN 30?
bool push_has_vlan(int number);

/// Is one push whole in force, in UCI (as `uci show` has it) and in the live record, and is it the
/// last one the daemon said it took, or a later one of which nobody knows? Adds what is not to
/// `why`. Nothing is said of a node that no such push was sent to.
void push_markers_check(const std::map<std::string, std::string> &uci, const std::string &wifi,
                        std::string *why);
