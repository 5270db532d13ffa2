#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tavos/core/Event.h"
#include "tavos/msgbus/IMsgBus.h"

/// The platform as the unit tests have it: the logger, the bus, the settings store and every service client of
/// tavos/, replaced at link time by recorders that write into the journal and answer what a test has put here.
struct FakeCamera {
    /// Operations that throw, as "pan.SetPosition", "pan.CreateClient", "settings.GetValue", "bus.StartServer",
    /// "logger.ConfigureLogging", and log lines as the journal has them, "log 6 just reconfigured!".
    std::set<std::string> failing;
    /// The same, for the next call of each only.
    std::set<std::string> failingOnce;
    /// What they throw: tavos::osa::Exception, or an int, or a std::runtime_error.
    bool throwsInt = false;
    bool throwsRuntimeError = false;
    /// What the module has begun on the bus, in order.
    std::vector<tavos::msgbus::Work> begun;
    /// Sees every call of a service as its journal line has it, "relay GetRelayCount", before it is answered: here a
    /// test changes the camera between the steps of one request.
    std::function<void(const std::string& call)> onCall;
    /// Sees every log line before it is written; what it throws leaves the logger, which the real one's never does.
    std::function<void(const std::string& line)> onLog;

    /// The buses that were opened, and each client's service with the bus that it was made with.
    std::vector<const tavos::msgbus::IMsgBus*> openedBuses;
    std::vector<std::pair<std::string, const tavos::msgbus::IMsgBus*>> clientBuses;

    std::uint32_t panPosition = 0;
    std::uint32_t panMinPosition = 0;
    std::uint32_t panMaxPosition = 360000;
    double panVelocity = 0.0;

    std::uint32_t tiltPosition = 0;
    int tiltMinPosition = -90000;
    int tiltMaxPosition = 90000;
    double tiltVelocity = 0.0;

    std::uint32_t magnification = 1000;
    std::uint32_t maxMagnification = 20000;
    std::uint32_t maxDigitalMagnification = 12000;
    std::uint32_t maxOpticalMagnification = 20000;

    double focusPosition = 0.0;
    double focusMinPosition = 0.0;
    double focusMaxPosition = 100.0;
    double focusMinTranslation = -100.0;
    double focusMaxTranslation = 100.0;
    bool autoIris = false;

    std::uint32_t maxPresets = 64;

    /// Banks in their order. `bankCount` and `total` win over the vectors' sizes where they are set.
    struct Banks {
        std::vector<std::pair<std::string, std::vector<bool>>> banks;
        std::map<std::string, int> bankCount;
        std::optional<int> total;
    };
    Banks alarms;
    Banks relays;

    int temperature = 25;
    int voltage = 0;
    int power = 0;
    tavos::core::Event2<int, int> temperatureChange;
    tavos::core::Event1<int> voltageChange;
    tavos::core::Event1<int> powerChange;

    /// "[Section]Key" -> value
    std::map<std::string, std::string> settings;
};

/// The camera of the test in hand. ResetCamera makes a new one and empties the journal.
FakeCamera& Camera();
void ResetCamera();
