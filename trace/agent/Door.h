#pragma once

#include <string>

namespace trace {

/// Where readers get the ring: a Unix stream socket, mode 0600. Whoever connects receives one octet with the ring's
/// descriptor and the reading end of a pipe that is open for as long as the ring is written; then the agent hangs up.
/// The agent never waits for a reader. The agent's thread only.
class Door {
public:
    Door() = default;
    ~Door();
    Door(const Door&) = delete;
    Door& operator=(const Door&) = delete;

    /// Makes the socket; a dead one there is replaced. False: `reason` says why in a line, and nothing is left open.
    /// `ring` is the ring's descriptor and stays the caller's.
    bool Open(const std::string& path, int ring, std::string& reason);
    bool IsOpen() const noexcept { return _listener >= 0; }

    /// Joins and leaves the agent's main loop. The socket stays: an agent that runs unprivileged could not make it
    /// again.
    bool Watch() noexcept;
    void Unwatch() noexcept;

private:
    static void OnReadable(int listener, void* self);
    static void OnAlarm(unsigned int alarm, void* self);
    void Serve() noexcept;
    void Rest() noexcept;
    void Hand(int reader) const noexcept;
    bool Bind(const std::string& path, std::string& reason);
    void Close() noexcept;

    int _listener = -1;
    int _ring = -1;
    int _life[2] = {-1, -1};
    bool _watched = false;
    unsigned int _alarm = 0;
};

}  // namespace trace
