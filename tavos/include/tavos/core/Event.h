#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "tavos/core/Delegate.h"

namespace tavos::core {

/// The handlers of one event, called in the order in which they were added. Thread-safe. The lock is held while the
/// handlers run. So a handler must not add or remove handlers of the same event, and after RemoveHandlers or the
/// destructor no handler of the object runs.
template <class Delegate>
class Event {
public:
    Event() = default;
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    /// Takes ownership of `handler`, which must not be null.
    void AddHandler(Delegate* handler) {
        std::unique_ptr<Delegate> owned(handler);
        std::lock_guard<std::mutex> lock(_mutex);
        _handlers.push_back(std::move(owned));
    }

    /// Deletes every handler that is bound to `object`.
    void RemoveHandlers(void* object) {
        std::lock_guard<std::mutex> lock(_mutex);
        for (auto handler = _handlers.begin(); handler != _handlers.end();) {
            handler = (*handler)->Matches(object) ? _handlers.erase(handler) : handler + 1;
        }
    }

    template <class... Arguments>
    void Fire(const Arguments&... arguments) {
        std::lock_guard<std::mutex> lock(_mutex);
        for (const auto& handler : _handlers) handler->Call(arguments...);
    }

private:
    std::mutex _mutex;
    std::vector<std::unique_ptr<Delegate>> _handlers;
};

template <class A>
using Event1 = Event<IVoidDelegate1<A>>;
template <class A, class B>
using Event2 = Event<IVoidDelegate2<A, B>>;

}  // namespace tavos::core
