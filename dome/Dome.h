#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CallLog.h"
#include "Configuration.h"
#include "Control.h"
#include "DescriptorSet.h"
#include "Faults.h"
#include "HeldPings.h"
#include "History.h"
#include "IControl.h"
#include "ModelClock.h"
#include "SettingsLink.h"
#include "dome/console/Console.h"
#include "dome/model/Camera.h"
#include "dome/services/Services.h"
#include "tavos/msgbus/ServiceHost.h"

namespace dome {

/// The desk camera on the bus. Everything runs on the thread that calls Run.
class Dome final : private IControl {
public:
    /// A camera as configured. `store` is the settings store's file, which may be missing. Takes all bus names. Throws
    /// tavos::osa::Exception when the bus does not answer or a name is taken.
    Dome(const std::string& busAddress, const Configuration& configuration, const std::string& store);

    /// Opens the console for browsers. Throws tavos::osa::Exception when it cannot listen on the port.
    void OpenConsole(const console::Options& options);

    /// Makes Run look at its `stop` when the descriptor is readable. Throws tavos::osa::Exception when the system
    /// cannot watch it.
    void WakeOn(int descriptor);

    /// Serves until `stop` is set (a signal handler may set it, and must then make a descriptor of WakeOn readable: Run
    /// may wait for an hour). Survives a restart of the bus.
    void Run(const std::atomic<bool>& stop);

private:
    using Clock = std::chrono::steady_clock;

    std::vector<std::string> Execute(const std::vector<std::string>& words) override;
    Control::Answer Execute(const char* by, const std::vector<std::string>& words);
    Fault CallForPage(const std::string& service, const std::vector<std::string>& words,
                      const std::function<void()>& carryOut);
    bool TakesOver(const tavos::msgbus::ReceivedCall& call);
    int Timeout() const;
    void LetTimePass();
    void EmitEvents();
    void FollowSettings();

    DescriptorSet _wakers;
    Camera _camera;
    SettingsLink _settings;
    ModelClock _clock{_camera};
    Services _services{_camera};
    CallLog _calls;
    History _history{_camera, _services, _clock, _calls};
    tavos::msgbus::ServiceHost _host;
    const std::vector<Services::Name> _names;
    Faults _faults;
    HeldPings _hungPings;
    Control _control{_camera, _clock, _services, _calls, _faults, _history};
    Clock::time_point _now = Clock::now();
    Clock::time_point _nextEvents{};
    std::unique_ptr<console::Console> _console;  // null: no console
};

}  // namespace dome
