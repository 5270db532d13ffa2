#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Agent.h"
#include "Handover.h"
#include "Sender.h"
#include "TraceFeed.h"
#include "dome/Faults.h"
#include "dome/services/Services.h"
#include "tavos/msgbus/ServiceHost.h"

namespace dome::console {

class Server;

struct Options {
    std::string address = "127.0.0.1";
    std::uint16_t port = 0;          ///< TCP; 0: any free one
    std::vector<std::string> names;  ///< further host names under which the page is reached
    std::string fleet;               ///< the folder of the camera's fleet; empty: none
    Agent agent;                     ///< shown in commands
    bool watchesAgent = false;       ///< probes that agent while a browser watches
    TraceSource trace;               ///< what the page's trace reads while a browser shows it
};

/// What the console requires of the camera besides its services. Called on the camera's thread.
struct CameraAccess {
    /// The whole camera as JSON, at most that many inputs and that many relays.
    std::function<std::string(std::size_t maxPoints)> state;
    /// Carries out one of domectl's commands; throws when it cannot.
    std::function<void(const std::vector<std::string>& words)> execute;
    /// Carries out a call of the service with this short name, unless the service's fault prevents it. Returns that
    /// fault, or kOk when the call was carried out; throws what `carryOut` throws. `words` are the call as the camera's
    /// history shows it.
    std::function<Fault(const std::string& service, const std::vector<std::string>& words,
                        const std::function<void()>& carryOut)>
        call;
    /// What `domectl history --since N` prints; throws when it cannot.
    std::function<std::string(std::uint64_t change)> history;
    std::string serialNumber;  ///< empty: it has none
};

/// The camera as a page in a browser. Call all members on the camera's thread; only the destructor may block. A
/// separate thread serves the browsers.
class Console {
public:
    static constexpr std::size_t kMaxPoints = 512;  ///< inputs, and as many relays, that a state shows

    /// Listens. Throws tavos::osa::Exception, with one line of text, when it cannot listen on the address and port. The
    /// services must outlive the console.
    Console(const Options& options, Services& services, CameraAccess camera);
    /// Waits at most 2 seconds for an agent that hangs.
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// The port that it listens on.
    std::uint16_t Port() const;

    /// Readable while Work has something to do.
    int Descriptor() const { return _handover.Descriptor(); }

    /// The max time until the next Work, in milliseconds: `timeout` or less.
    int Timeout(int timeout) const;

    /// Carries out the browsers' requests, and publishes the camera's state at intervals while a browser watches.
    void Work();

    /// Records a call from the bus; `outcome` as CallLog::Add.
    void Heard(const std::string& service, const tavos::msgbus::ReceivedCall& call, const std::string& outcome);

private:
    using Clock = std::chrono::steady_clock;

    std::function<Reply()> Prepare(const std::string& path, const nlohmann::json& body);
    Reply Summary() const;
    Reply Control(const std::vector<std::string>& words);
    Reply CallService(const std::string& service, const std::string& operation, const nlohmann::json& arguments);
    void OnTemperature(int sensor, int degrees);
    void OnVoltage(int status);
    void OnPower(int status);
    void Note(const char* source, const std::string& service, const std::string& call,
              std::vector<std::string> arguments, const std::string& outcome);
    void Show();

    Services& _services;
    CameraAccess _camera;
    Handover _handover;
    std::string _shown;
    nlohmann::json _lastCall;  // from the bus; null: none yet
    bool _hasNews = false;
    TraceFeed _trace;
    Sender _sender;
    std::atomic<std::uint64_t> _focusReads{0};
    Clock::time_point _nextShow{};
    std::unique_ptr<Server> _server;  // last: its thread uses the other members
};

}  // namespace dome::console
