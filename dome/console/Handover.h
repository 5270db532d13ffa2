#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace dome::console {

/// The answer to a browser: an HTTP status and a JSON text.
struct Reply {
    unsigned status = 200;
    std::string body;
};

/// Work that the console's thread gives to the camera's thread.
struct Request {
    std::function<Reply()> work;          ///< on the camera's thread
    std::function<void(Reply)> finished;  ///< on the camera's thread as well; must not block
};

/// Does the work and finishes it, with 500 and the reason when the work throws. When finishing throws, the answer is
/// dropped.
void CarryOut(const Request& request) noexcept;

/// A call that the camera received, or an event that it emitted.
struct Activity {
    std::uint64_t number = 0;  ///< counts from 1
    std::int64_t time = 0;     ///< milliseconds since 1970
    std::string source;        ///< "bus", "console" or "event"
    std::string service;       ///< short name, "pan"
    std::string call;          ///< operation, or the event's name
    std::vector<std::string> arguments;
    std::string outcome;  ///< "ok", "fail", "hang", "gone" or "refused"; "" for an event
};

/// Everything that passes between the camera's thread and the console's. Neither waits for the other: the lock is held
/// only for copies and swaps. Any thread may call any member.
class Handover {
public:
    static constexpr std::size_t kMaxRequests = 256;
    static constexpr std::size_t kMaxActivities = 500;
    static constexpr std::size_t kMaxArguments = 8;
    static constexpr std::size_t kMaxText = 200;  ///< octets of an argument; longer ones are cut

    /// Throws tavos::osa::Exception when the system has no descriptor left.
    Handover();
    ~Handover();
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

    /// Readable while there is something for the camera's thread to do: requests, or the first watcher.
    int Descriptor() const { return _descriptor; }

    /// False when too many requests are waiting.
    bool Ask(Request request);

    /// The requests that wait, oldest first; makes the descriptor unreadable.
    std::vector<Request> TakeRequests();

    /// The number of browsers that watch states.
    void SetWatchers(int count);
    bool IsWatched() const { return _watchers.load(std::memory_order_relaxed) > 0; }

    /// Sets the function that is called for each Publish and Announce; null: none. Once this has returned, the previous
    /// one is no longer called. It runs with the lock held, and must neither block nor call a member.
    void OnPublished(std::function<void()> published);

    /// Replaces the state, a JSON text.
    void Publish(std::string state);
    void ClearState() { Publish(""); }

    /// Numbers the activity and keeps it; drops the oldest one above the limit.
    void Add(Activity activity);

    /// Announces new activities; one call is enough for a burst.
    void Announce();

    std::shared_ptr<const std::string> State() const;
    std::vector<Activity> ActivitiesAfter(std::uint64_t number) const;

private:
    void Wake();

    mutable std::mutex _mutex;
    std::deque<Request> _requests;
    std::deque<Activity> _activities;
    std::uint64_t _lastNumber = 0;
    std::shared_ptr<const std::string> _state = std::make_shared<const std::string>();
    std::function<void()> _published;
    std::atomic<int> _watchers{0};
    int _descriptor;
};

}  // namespace dome::console
