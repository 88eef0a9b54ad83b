// What tests of the bus share: a broker process on a socket of its own, a client that speaks raw
// frames, and a way to run programs.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "libubus.h"
#include "support/eventually.h"
#include "support/temporary_directory.h"

inline constexpr int PATIENCE_MS = 20000;

/// A process that is killed, at the latest, when its handle goes.
struct child {
    pid_t pid = -1;
    int out = -1; // its standard output, when asked for

    child() = default;
    ~child();
    child(const child &) = delete;
    child &operator=(const child &) = delete;
    /// Standard error goes to the file `errors` if that is not empty.
    void start(const std::vector<std::string> &argv, bool read_output,
               const std::string &errors = {});
    void signal(int number) const;
    /// Waits for its end; returns the exit code, -1 when it was killed or does not end.
    int wait();
    /// What it writes up to the next newline, without it.
    std::string read_line() const;
    std::string read_all() const;
    bool has_output() const;
};

struct bus_broker {
    temporary_directory folder;
    std::string socket = folder / "ubus.sock";
    child process;

    bus_broker() { start(); }
    void start();
    /// Ends it so that clients see a hang-up.
    void stop();
};

/// One frame as it stands on the wire.
using frame = std::string;

struct raw_client {
    int fd = -1;
    uint32_t id = 0;

    raw_client() = default;
    /// Connects and reads the greeting.
    explicit raw_client(const std::string &socket);
    ~raw_client();
    raw_client(raw_client &&other) noexcept;
    raw_client &operator=(raw_client &&other) noexcept;
    void connect(const std::string &socket); // without reading the greeting
    void disconnect();
    bool send(const std::string &bytes, int passed_fd = -1) const;
    /// The next frame; empty at the end of the stream or when none comes in time. A descriptor that
    /// came along is closed and counted.
    frame receive(int timeout_ms = PATIENCE_MS, int *fds = nullptr) const;
    /// Sends a request and collects the frames up to its status.
    std::vector<frame> request(const frame &bytes) const;
    /// The status with which a request ends; -1: none came.
    int status_of(const frame &request) const;
    /// Waits until the broker closes the connection; false when it sends something or lives on.
    bool closed_by_peer() const;
    /// Whether nothing is on its way here: what a ping finds before its own answer.
    bool nothing_waiting() const;
};

/// A frame of this type with the attributes that `fill` puts.
frame make_frame(uint8_t type, uint16_t seq, uint32_t peer,
                 const std::function<void(blob_buf *)> &fill = {});
uint8_t frame_type(const frame &f);
uint16_t frame_seq(const frame &f);
uint32_t frame_peer(const frame &f);
/// The status in a STATUS frame, or -1.
int frame_status(const frame &f);
/// An attribute's payload; empty when absent.
std::string frame_attribute(const frame &f, unsigned id);
uint32_t frame_number(const frame &f, unsigned id);

using filler = std::function<void(blob_buf *)>;
frame status_frame(uint16_t seq, uint32_t peer, int status = 0, uint32_t object = 0);
/// The end of the call that arrived as `call`, as its object's owner sends it.
frame reply_to(const frame &call, int status);
frame lookup_frame(uint16_t seq, const char *path);
frame invoke_frame(uint16_t seq, uint32_t object, const char *method, const filler &data = {});
/// Sends an event with a text. Without id (null): none.
frame event_frame(const char *id, const std::string &text = "t");
/// Asks for events; an object 0 or a pattern null is left out.
frame listen_frame(uint32_t object, const char *pattern);
/// Subscribes, unsubscribes or removes: a message about one or two objects, 0: left out.
frame objects_frame(uint8_t type, uint32_t object, uint32_t target = 0);
frame notify_frame(uint32_t object, const char *method, const filler &data = {});
frame add_object_frame(uint16_t seq, const char *path, bool typed = true);
/// Publishes an object and returns its id, 0 on failure. Path null: anonymous.
uint32_t publish(const raw_client &client, const char *path);

bool readable(int fd, int timeout_ms = PATIENCE_MS);
/// Handles what comes in for `ctx`, which is not in the loop, until `done` says so or time is over.
bool pump(ubus_context *ctx, const std::function<bool()> &done);
/// As pump(), by the event loop.
bool run_loop(const std::function<bool()> &done);
