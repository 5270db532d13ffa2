#include "tavos/osa/Mutex.h"

#include <chrono>

namespace tavos::osa {

bool Mutex::Lock(std::uint32_t timeout) {
    if (timeout == kWaitForever) {
        _mutex.lock();
        return true;
    }
    return _mutex.try_lock_for(std::chrono::milliseconds(timeout));
}

void Mutex::Release() {
    _mutex.unlock();
}

}  // namespace tavos::osa
