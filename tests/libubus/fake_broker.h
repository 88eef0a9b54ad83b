// The broker's side of recorded conversations, played to a client of ours by a thread.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "bus_testing.h"
#include "captures.h"

class fake_broker {
public:
    temporary_directory folder;
    const std::string socket = folder / "ubus.sock";

    fake_broker();
    ~fake_broker();
    fake_broker(const fake_broker &) = delete;
    fake_broker &operator=(const fake_broker &) = delete;

    /// Starts to play the steps. A message to the broker without bytes stands for any message.
    void play(std::vector<capture_step> steps);
    bool done() const { return !busy; }
    /// Waits for the end of the play; returns what went wrong, or an empty text.
    std::string finish();
    /// Closes the connection and returns what the client had sent beyond the play, as hex.
    std::string leftover();

private:
    int listener;
    raw_client connection;
    std::atomic<bool> busy = false;
    std::thread thread;
    std::string fault;

    void run(const std::vector<capture_step> &steps);
    bool play_step(const capture_step &step);
    bool expect(const std::string &bytes);
};

/// The steps of one connection of a conversation.
std::vector<capture_step> steps_of(int number, char connection);

/// The steps of a new connection up to its greeting.
std::vector<capture_step> greeted(char connection);
/// Requests of any content, each with these replies.
std::vector<capture_step> answered(const std::vector<std::vector<frame>> &replies);
