#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/Lane.h"
#include "tavos/msgbus/ServiceAddress.h"

namespace tavos::msgbus {

/// The lanes that a host has handed out. A lane carries the calls of one client to one service and nothing else.
/// Whatever else arrives on it closes it, and so does a call that arrives while the client has not read an earlier
/// answer: a client costs the host at most one call's and one answer's memory. One thread.
class ServedLanes {
public:
    static constexpr std::size_t kMaxForService = 4;

    /// Serves an interface's operations on a lane until the returned object is destroyed.
    using Attach = std::function<std::shared_ptr<void>(sd_bus* lane)>;

    ServedLanes();
    ~ServedLanes();
    ServedLanes(const ServedLanes&) = delete;
    ServedLanes& operator=(const ServedLanes&) = delete;

    /// Returns the client's end of a new lane; replaces the client's previous lane to that service. `client` is its
    /// unique name. Throws tavos::osa::Exception if the service has kMaxForService lanes to other clients, or without a
    /// free descriptor.
    Descriptor Open(const ServiceAddress& service, const std::string& client, const Attach& attach);

    /// Closes the lanes of a service at once; also during a call on one of them.
    void Close(const std::string& service);
    void CloseAll();

    std::size_t Count() const;

    /// Adds the lanes to a wait; after the wait, notes those that have something to do.
    void AddTo(BusWait& wait);
    void Note(const BusWait& wait);

    /// True if the lane that was served last has a call. Sees no other lane, but costs less than BusWait::Look.
    bool ReceiveNext();

    /// Serves at most one call on each noted lane, so that a busy client delays others little. True if there was a
    /// noted lane.
    bool Serve();

private:
    struct Lane;
    void CloseIf(const std::function<bool(const Lane&)>& condition);
    void Sweep();

    std::vector<std::unique_ptr<Lane>> _lanes;
    Lane* _last = nullptr;  // served last
};

}  // namespace tavos::msgbus
