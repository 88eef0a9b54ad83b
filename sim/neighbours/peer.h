// What every simulated neighbour is made of: the bus connection, its objects, the journal, UCI
// look-ups, and the faults it plays on request. A neighbour says what it publishes and answers.
//
// Every object has a method "sim": {"fault": NAME, "delay_ms": N, "method": NAME, "count": N}.
// From then on calls of that method (of every method when absent) are answered so, `count` times
// (until changed when absent):
//   hang   never answered               die    the process ends with the call pending
//   late   answered after delay_ms      twice  the data comes twice
//   wrong  every member has another type    empty  no data    fail  status 9, no data
//   none   answered well
// With "object": PATH only that object is concerned, else each of the program.
// A notification's name is a method here too: hang drops it, late and twice do what they say.
#pragma once

#include <libubus.h>
#include <map>
#include <span>
#include <string>
#include <vector>

struct peer_object;

/// Answers a call: adds members to `reply`, which is empty; none added means no data is sent.
/// Returns the bus status.
using peer_handler = int (*)(const peer_object &object, const std::string &method, blob_attr *msg,
                             blob_buf *reply);

struct peer_method {
    const char *name;
    std::span<const blobmsg_policy> arguments;
};

struct peer_object {
    ubus_object object;
    ubus_object_type type;
    std::string path;
    std::vector<ubus_method> methods;
    peer_handler handler;
    bool withdrawn; ///< private: to be removed from the bus as soon as it can be
};

/// Connects (for ever again), calls `start` once the loop is ready, runs until a signal ends it.
int peer_run(const char *name, void (*start)());
/// The connection; calls on it fail while the broker is away.
ubus_context *peer_bus();

/// Puts an object on the bus, now or when it can be reached. Lives until withdrawn.
peer_object *peer_publish(const std::string &path, std::span<const peer_method> methods,
                          peer_handler handler);
void peer_withdraw(peer_object *object);
/// The object of that path, or null.
peer_object *peer_find(const std::string &path);
void peer_notify(peer_object *object, const char *type, blob_attr *msg);

/// Appends "<seconds since boot> <neighbour> <text>" to the journal.
void peer_journal(const std::string &text);
/// The members of `msg` as compact JSON.
std::string peer_json(blob_attr *msg);
/// One member of `msg`, or the fallback when it is missing or of another type.
std::string peer_string(blob_attr *msg, const char *name, const char *fallback = "");
int peer_int(blob_attr *msg, const char *name, int fallback);

/// The string options of one UCI section as committed.
struct peer_section {
    std::string name;
    std::map<std::string, std::string> options;
};
/// Every section of a package, in file order; empty when it cannot be read.
std::vector<peer_section> peer_uci_sections(const char *package);
/// An option's value, "" when missing.
std::string peer_option(const peer_section &section, const char *name);
/// A shell command; its failure is reported on standard error.
void peer_shell(const std::string &command);
