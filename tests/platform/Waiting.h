#pragma once

#include <poll.h>

#include <chrono>

/// Polls until the condition holds; false when it does not hold within the time.
template <class Condition>
bool Eventually(const Condition& condition, std::chrono::milliseconds time = std::chrono::seconds(10)) {
    const auto until = std::chrono::steady_clock::now() + time;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= until) return false;
        poll(nullptr, 0, 5);
    }
    return true;
}

template <class Work>
std::chrono::milliseconds TimeOf(const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}
