// Waiting for what other processes and threads do in their own time.
#pragma once

#include <chrono>
#include <thread>

/// Asks again and again until the answer is yes or time is over.
template <typename Condition>
bool eventually(Condition condition, int limit_ms = 20000)
{
    using namespace std::chrono;
    for (const auto end = steady_clock::now() + milliseconds(limit_ms);
         steady_clock::now() < end;) {
        if (condition())
            return true;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return false;
}
