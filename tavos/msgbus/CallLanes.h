#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <map>
#include <string>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/Lane.h"
#include "tavos/msgbus/ServiceAddress.h"
#include "tavos/msgbus/SpinWait.h"

namespace tavos::msgbus {

/// The lanes of one connection for calls. A service is asked for its lane after a few answered calls over the bus. The
/// answer is fetched when the connection is processed anyway: no call ever waits for a lane. A service that has none is
/// called over the bus as before. Nothing is logged: a lane changes no result. Not synchronized; CloseInChild excepted.
class CallLanes {
public:
    static constexpr std::size_t kMaxLanes = 32;
    static constexpr int kAnswersBeforeLane = 4;
    static constexpr int kMaxRequests = 3;  ///< to one owner that has answered no call on a lane

    /// `spins`: whether the waits for answers may spin.
    CallLanes(Serials& serials, bool spins) : _serials(serials), _spins(spins) {}
    ~CallLanes() { Release(); }
    CallLanes(const CallLanes&) = delete;
    CallLanes& operator=(const CallLanes&) = delete;

    struct Lane {
        BusPtr connection;
        std::string sender;  ///< the unique name under which the service knows its client
        SpinWait wait{nullptr};

        /// As sd_bus_wait.
        int WaitUntil(Clock::time_point until);
    };

    /// The lane to the service, on which the next message will be the answer to the next call; otherwise null. Closes a
    /// lane that the service has closed, or on which a message waits: nobody asked for it.
    Lane* Find(const std::string& service);

    /// True if there is a lane, which may have ended.
    bool Has(const std::string& service) const;

    /// `service`, now owned by the connection `owner`, has answered a call over `bus`. Sends it the request for a lane
    /// when one is due. Without memory there is no request: the call has succeeded, whatever fails here.
    void Answered(sd_bus* bus, const ServiceAddress& service, const char* owner) noexcept;

    /// The service has answered a call on its lane.
    void Served(const std::string& service);

    /// As sd_bus_process, for the connection to the bus: it may receive a lane.
    int Process(sd_bus* bus);

    /// After a call on it has failed: another lane is requested only after a while, or from another owner.
    void Close(const std::string& service);
    /// Before the connection to the bus is closed: ends the requests on it. Lanes survive: their services close them if
    /// the bus itself has ended.
    void EndRequests();

    /// In a forked child, whatever other threads were doing: closes the descriptors and nothing else. Destroy neither
    /// the object nor its connections.
    void CloseInChild();

private:
    struct Socket {
        ConnectionSocket socket;
        bool isUsed = false;
    };
    struct Record {
        CallLanes* lanes = nullptr;
        std::string owner;
        int answers = 0;
        int requests = 0;                 // since the last answer on a lane
        Clock::time_point nextRequest{};  // max(): none to this owner
        SlotPtr request;                  // while it is unanswered
        Lane lane;
        Socket* socket = nullptr;  // the lane's, one of _sockets
    };

    static void CloseLane(Record& record);
    static int OnAnswer(sd_bus_message* answer, void* record, sd_bus_error*);
    void Request(sd_bus* bus, const ServiceAddress& service, Record& record);
    void GiveUpRequest();
    void Open(Record& record, sd_bus_message* answer);
    void Reserve();
    void Release();

    Serials& _serials;
    const bool _spins;
    SpinPause _pause;
    std::map<std::string, Record> _records;
    bool _requested = false;              // a request is unanswered
    Clock::time_point _requestedUntil{};  // the first call answered later gives it up
    std::atomic<int> _reserved{-1};       // see Process
    std::array<Socket, kMaxLanes> _sockets;
};

}  // namespace tavos::msgbus
