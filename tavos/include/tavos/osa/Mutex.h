#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "tavos/Api.h"

namespace tavos::osa {

/// Waits without end when handed to Mutex::Lock.
constexpr std::uint32_t kWaitForever = 0xFFFFFFFF;

/// A mutex with a name for the person who debugs it. Not recursive.
class TAVOS_API Mutex {
public:
    explicit Mutex(const char* name) : _name(name) {}
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Waits at most `timeout` milliseconds; true when the caller now holds the mutex.
    bool Lock(std::uint32_t timeout);

    /// Called by the holder only.
    void Release();

    const std::string& Name() const { return _name; }

private:
    std::string _name;
    std::timed_mutex _mutex;
};

}  // namespace tavos::osa
