// Waiting for what other processes and threads do in their own time.
#pragma once

#include <chrono>
#include <thread>

/// Asks again and again until the answer is yes, at most twenty seconds.
template <typename Condition>
bool eventually(Condition condition)
{
    using namespace std::chrono;
    for (const auto end = steady_clock::now() + seconds(20); steady_clock::now() < end;) {
        if (condition())
            return true;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return false;
}
