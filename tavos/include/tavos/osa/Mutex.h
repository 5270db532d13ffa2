#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "tavos/Api.h"

namespace tavos::osa {

/// A Mutex::Lock timeout: no deadline.
constexpr std::uint32_t kWaitForever = 0xFFFFFFFF;

/// A mutex with a name for debugging. Not recursive.
class TAVOS_API Mutex {
public:
    explicit Mutex(const char* name) : _name(name) {}
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Waits at most `timeout` milliseconds. True if the caller now holds the mutex.
    bool Lock(std::uint32_t timeout);

    /// Called by the holder only.
    void Release();

    const std::string& Name() const { return _name; }

private:
    std::string _name;
    std::timed_mutex _mutex;
};

}  // namespace tavos::osa
