#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tavos/core/Event.h"
#include "tavos/msgbus/IMsgBus.h"

/// The platform in the unit tests. Recorders replace the logger, the bus, the settings store and every service client
/// of tavos/ at link time; the clients are generated, see Recorder.h. They write into the journal and answer with this
/// camera's values.
struct FakeCamera {
    /// Operations that throw: "pan.SetPosition", "pan.CreateClient", "settings.GetValue", "bus.StartServer",
    /// "logger.ConfigureLogging"; an operation of a service only with these arguments, "alarm.GetAlarmState BNK2 0";
    /// and log lines as in the journal, "log 6 just reconfigured!".
    std::set<std::string> failing;
    /// The same, but only for the next call of each.
    std::set<std::string> failingOnce;
    /// The exception: tavos::osa::Exception, or an int, or a std::runtime_error.
    bool throwsInt = false;
    bool throwsRuntimeError = false;
    /// The kinds of work that the module began on the bus, in order.
    std::vector<tavos::msgbus::Work> begun;
    /// Called for each service call before its answer, with its journal line "relay GetRelayCount": a test can change
    /// the camera between the steps of one request.
    std::function<void(const std::string& call)> onCall;
    /// Called for every log line before it is written. May throw out of the logger; the real logger never throws.
    std::function<void(const std::string& line)> onLog;

    /// The opened buses, and each client's service with the bus of its creation.
    std::vector<const tavos::msgbus::IMsgBus*> openedBuses;
    std::vector<std::pair<std::string, const tavos::msgbus::IMsgBus*>> clientBuses;

    /// The numbers and booleans that operations return, by the operation's name; 0 for all others.
    std::map<std::string, double> answers = {
        {"pan.GetMaxPosition", 360000},
        {"tilt.GetMinPosition", -90000},
        {"tilt.GetMaxPosition", 90000},
        {"zoom.GetMagnificationThousandthsX", 1000},
        {"zoom.GetMaxMagnificationThousandthsX", 20000},
        {"zoom.GetMaxDigitalMagnificationThousandthsX", 12000},
        {"zoom.GetMaxOpticalMagnificationThousandthsX", 20000},
        {"focus2.GetMaxPosition", 100},
        {"focus2.GetMinTranslation", -100},
        {"focus2.GetMaxTranslation", 100},
        {"presets2.GetMaxPresets", 64},
        {"temperature.GetTemperatureDegreesCelsius", 25},
    };

    /// Banks in order. `bankCount` and `total` override the vectors' sizes.
    struct Banks {
        std::vector<std::pair<std::string, std::vector<bool>>> banks;
        std::map<std::string, int> bankCount;
        std::optional<int> total;
    };
    Banks alarms;
    Banks relays;

    tavos::core::Event2<int, int> temperatureChange;
    tavos::core::Event1<int> voltageChange;
    tavos::core::Event1<int> powerChange;

    /// "[Section]Key" -> value
    std::map<std::string, std::string> settings;
};

/// The camera of the current test. ResetCamera creates a new one and empties the journal.
FakeCamera& Camera();
void ResetCamera();
