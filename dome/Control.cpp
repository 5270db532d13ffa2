#include "Control.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>

#include "OneLine.h"
#include "WrongWord.h"
#include "dome/services/Arguments.h"
#include "tavos/osa/Exception.h"

namespace dome {

namespace {

using tavos::osa::Exception;
using Words = std::vector<std::string>;
using Json = nlohmann::ordered_json;  // keeps the order of the banks

constexpr int kEventsAtOnce = 40;

template <class Number>
Number ParseNumber(const std::string& text) {
    Number number{};
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec == std::errc::result_out_of_range) throw Exception("number out of range: %s", text.c_str());
    if (parsed.ec != std::errc() || parsed.ptr != end) throw Exception("not a number: %s", text.c_str());
    return number;
}

/// A whole number; `what` names it in the exception.
template <class Number>
Number ParseWithin(const std::string& what, const std::string& text, Number minimum, Number maximum) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    const bool isTooLarge = parsed.ec == std::errc::result_out_of_range;
    if (parsed.ptr != end || (parsed.ec != std::errc() && !isTooLarge)) {
        throw Exception("%s: not a whole number: %s", what.c_str(), text.c_str());
    }
    if (isTooLarge || number < std::int64_t{minimum} || number > std::int64_t{maximum}) {
        throw Exception("%s %s outside %s to %s", what.c_str(), text.c_str(), std::to_string(minimum).c_str(),
                        std::to_string(maximum).c_str());
    }
    return static_cast<Number>(number);
}

template <class Number>
Number ParseWithin(const std::string& what, const std::string& text) {
    return ParseWithin(what, text, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max());
}

double ParsePercent(const std::string& what, const std::string& text) {
    const double percent = ParseNumber<double>(text);
    CheckPercent(what.c_str(), percent, 0);
    return percent;
}

bool ParseSwitch(const std::string& text) {
    if (text != "0" && text != "1") throw Exception("not 0 or 1: %s", text.c_str());
    return text == "1";
}

void CheckWords(const std::string& what, const Words& words, std::size_t min, std::size_t max) {
    if (words.size() < min || words.size() > max) {
        throw Exception("%s: wrong number of values (%zu)", what.c_str(), words.size());
    }
}

/// Limits of an axis whose unit is thousandths, as whole numbers, as its service returns them.
long LowestThousandth(const Axis& axis) {
    return std::lround(axis.Minimum());
}

long HighestThousandth(const Axis& axis) {
    return std::lround(axis.Maximum()) - (axis.IsEndless() ? 1 : 0);
}

double ParsePosition(const std::string& what, const Axis& axis, const std::string& text) {
    return static_cast<double>(ParseWithin(what, text, LowestThousandth(axis), HighestThousandth(axis)));
}

Json DriveState(const Axis& axis) {
    Json state;
    state["position"] = axis.Position();
    state["velocity"] = axis.Velocity();
    state["moving"] = axis.IsMoving();
    state["target"] = axis.Target() ? Json(*axis.Target()) : Json();
    state["minimum"] = axis.Minimum();
    state["maximum"] = axis.Maximum();
    return state;
}

Json ThousandthsState(const Axis& axis) {
    Json state = DriveState(axis);
    state["position"] = Thousandths(axis);
    if (axis.Target()) state["target"] = std::lround(*axis.Target());
    state["minimum"] = LowestThousandth(axis);
    state["maximum"] = HighestThousandth(axis);
    return state;
}

/// At most `maxPoints` points, of the first banks.
Json BanksState(const Banks& banks, std::size_t maxPoints) {
    Json state = Json::object();
    for (const Banks::Bank& bank : banks.All()) {
        const std::size_t count = std::min(bank.states.size(), maxPoints);
        using Difference = std::vector<bool>::difference_type;
        state[bank.name] = std::vector<bool>(bank.states.begin(), bank.states.begin() + static_cast<Difference>(count));
        maxPoints -= count;
    }
    return state;
}

}  // namespace

Control::Answer Control::Execute(const Words& words) {
    if (words.empty()) throw Exception("no command");
    const std::string& command = words.front();
    const Words arguments(words.begin() + 1, words.end());
    if (command == "state") {
        CheckWords(command, arguments, 0, 0);
        return {StateAndClock() + "\n"};
    }
    if (command == "calls") return {Calls(arguments)};
    if (command == "history") return {ReadHistory(arguments)};
    if (command == "wait") return {Moving(arguments)};
    if (command == "event") return Progress(AddEvents(arguments));
    if (command == "more") {
        CheckWords(command, arguments, 1, 1);
        const auto lastEvent = ParseNumber<std::uint64_t>(arguments[0]);
        // A camera that was restarted meanwhile would never reach this number.
        if (lastEvent > _events.Requested()) throw Exception("there are no events up to %s", arguments[0].c_str());
        return Progress(lastEvent);
    }
    if (command == "set") {
        Set(arguments);
    } else if (command == "banks") {
        ReplaceBanks(arguments);
    } else if (command == "clock") {
        SetClock(arguments);
    } else if (command == "fault") {
        CheckWords(command, arguments, 2, 2);
        _faults.Set(arguments[0], arguments[1]);
    } else {
        throw Exception("unknown command %s", command.c_str());
    }
    return {};
}

bool Control::IsAction(const Words& words) {
    constexpr std::array<const char*, 5> kActions = {"set", "banks", "clock", "event", "fault"};
    return !words.empty() && std::find(kActions.begin(), kActions.end(), words.front()) != kActions.end();
}

void Control::EmitEvents() {
    _events.Work(kEventsAtOnce);
}

Control::Answer Control::Progress(std::uint64_t lastEvent) const {
    return {"", _events.Emitted() < lastEvent ? lastEvent : 0};
}

Json Control::Picture(std::size_t maxPoints) const {
    Json state;
    state["pan"] = ThousandthsState(_camera.pan);
    state["tilt"] = ThousandthsState(_camera.tilt);
    state["zoom"] = ThousandthsState(_camera.zoom.Drive());
    state["zoom"]["optical"] = _camera.zoom.OpticalMaximum();
    state["focus"] = DriveState(_camera.focus.Drive());
    state["focus"]["auto"] = _camera.focus.IsAuto();
    state["focus"]["focusing"] = _camera.focus.IsFocusing();
    state["focus"]["sharp"] = _camera.SharpFocus();
    state["iris"] = DriveState(_camera.iris.Drive());
    state["iris"]["auto"] = _camera.iris.IsAuto();
    state["iris"]["light"] = _camera.iris.Light();
    state["presets"] = _camera.presets;
    state["alarm"] = BanksState(_camera.alarms, maxPoints);
    state["relay"] = BanksState(_camera.relays, maxPoints);
    const auto points = static_cast<std::size_t>(std::max(_camera.alarms.Total(), _camera.relays.Total()));
    if (points > maxPoints) state["shortened"] = true;
    state["temperature"] = _camera.sensors.Temperatures();
    state["voltage"] = _camera.sensors.VoltageStatus();
    state["power"] = _camera.sensors.PowerStatus();
    state["fan"] = _camera.sensors.IsFanRunning();
    for (const auto& [service, fault] : _faults.All()) state["faults"][service] = KindOf(fault).name;
    state["clock"]["mode"] = _clock.IsRunning() ? "run" : "pause";
    state["clock"]["rate"] = _clock.Rate();
    return state;
}

std::string Control::State(std::size_t maxPoints) const {
    return OneLine(Picture(maxPoints));
}

std::string Control::StateAndClock() const {
    Json state = Picture(kAllPoints);
    state["clock"]["time"] = _clock.Time();
    return OneLine(state);
}

void Control::SetClock(const Words& arguments) {
    CheckWords("clock", arguments, 1, 2);
    const std::string& verb = arguments[0];
    const bool takesNumber = verb == "step" || verb == "rate";
    if (!takesNumber && verb != "pause" && verb != "run") throw WrongWord("clock", verb, "pause, run, step, rate");
    CheckWords("clock " + verb, arguments, takesNumber ? 2 : 1, takesNumber ? 2 : 1);
    if (verb == "pause") _clock.Pause();
    if (verb == "run") _clock.Run();
    // What begins within the step is the camera's own doing.
    const History::Because nothing(_history, {});
    Refusable([&] {
        if (verb == "step") _clock.Step(ParseNumber<double>(arguments[1]));
        if (verb == "rate") _clock.SetRate(ParseNumber<double>(arguments[1]));
    });
}

std::string Control::Calls(const Words& arguments) {
    CheckWords("calls", arguments, 0, 1);
    const bool clear = !arguments.empty();
    if (clear && arguments[0] != "--clear") throw WrongWord("calls", arguments[0], "--clear");
    std::string lines = _calls.Lines();
    if (clear) _calls.Clear();
    return lines;
}

/// Those of the axes that move now, with blanks between; of all axes when none is named.
std::string Control::Moving(const Words& axes) const {
    const std::map<std::string, const Axis*> all = {{"pan", &_camera.pan},
                                                    {"tilt", &_camera.tilt},
                                                    {"zoom", &_camera.zoom.Drive()},
                                                    {"focus", &_camera.focus.Drive()},
                                                    {"iris", &_camera.iris.Drive()}};
    for (const std::string& axis : axes) {
        if (all.count(axis) == 0) throw WrongWord("wait", axis, KeysOf(all) + ", --timeout");
    }
    std::string moving;
    for (const auto& [name, axis] : all) {
        const bool isAsked = axes.empty() || std::find(axes.begin(), axes.end(), name) != axes.end();
        if (isAsked && axis->IsMoving()) moving += (moving.empty() ? "" : " ") + name;
    }
    return moving;
}

std::string Control::ReadHistory(const Words& arguments) const {
    CheckWords("history", arguments, 0, 2);
    if (arguments.empty()) return _history.Since(0);
    if (arguments[0] != "--since") throw WrongWord("history", arguments[0], "--since");
    CheckWords("history --since", arguments, 2, 2);
    return _history.Since(ParseNumber<std::uint64_t>(arguments[1]));
}

void Control::Set(const Words& arguments) {
    CheckWords("set", arguments, 2, 4);
    const std::string& name = arguments[0];
    const std::string& value = arguments[1];

    using Setter = std::function<void()>;
    const std::map<std::string, Setter> setters = {
        {"pan", [&] { _camera.pan.JumpTo(ParsePosition(name, _camera.pan, value)); }},
        {"tilt", [&] { _camera.tilt.JumpTo(ParsePosition(name, _camera.tilt, value)); }},
        {"zoom", [&] { _camera.zoom.JumpTo(ParsePosition(name, _camera.zoom.Drive(), value)); }},
        {"zoom-max", [&] { SetMaxZoom(value); }},
        {"focus", [&] { _camera.focus.JumpTo(ParsePercent(name, value)); }},
        {"iris", [&] { _camera.iris.JumpTo(ParsePercent(name, value)); }},
        {"light", [&] { _camera.iris.SetLight(ParsePercent(name, value)); }},
        {"auto-focus", [&] { _camera.focus.SetAuto(ParseSwitch(value)); }},
        {"auto-iris", [&] { _camera.iris.SetAuto(ParseSwitch(value)); }},
        {"presets", [&] { _camera.presets = ParseWithin<std::uint32_t>(name, value); }},
        // Accepts unknown codes, because readers must handle them.
        {"voltage", [&] { _camera.sensors.SetVoltageStatus(ParseWithin<int>(name, value)); }},
        {"power", [&] { _camera.sensors.SetPowerStatus(ParseWithin<int>(name, value)); }},
    };
    const std::map<std::string, Setter> longSetters = {
        {"temperature",
         [&] {
             CheckWords(name, arguments, 2, 3);
             const int sensor = arguments.size() == 3 ? ParseSensor(value) : 0;
             _camera.sensors.SetTemperature(sensor, ParseWithin<int>(name, arguments.back()));
         }},
        {"alarm", [&] { SetBank(_camera.alarms, arguments); }},
        {"relay", [&] { SetBank(_camera.relays, arguments); }},
    };
    const auto found = setters.find(name);
    const auto longer = longSetters.find(name);
    if (found != setters.end()) {
        CheckWords(name, arguments, 2, 2);
        Refusable(found->second);
    } else if (longer != longSetters.end()) {
        Refusable(longer->second);
    } else {
        throw WrongWord("set", name, KeysOf(setters) + ", " + KeysOf(longSetters));
    }
}

void Control::SetBank(Banks& banks, const Words& arguments) {
    CheckWords(arguments[0], arguments, 4, 4);
    const std::string& bank = arguments[1];
    const int count = banks.Count(bank);
    if (count == 0) throw Exception("bank %s has nothing to set", bank.c_str());
    banks.Set(bank, ParseWithin("number in bank " + bank + ':', arguments[2], 0, count - 1), ParseSwitch(arguments[3]));
}

void Control::SetMaxZoom(const std::string& value) {
    _camera.zoom.SetMaximum(ParseWithin("zoom-max", value, Zoom::kMinimum, _camera.zoom.CombinedMaximum()));
}

int Control::ParseSensor(const std::string& text) const {
    const int count = static_cast<int>(_camera.sensors.Temperatures().size());
    return ParseWithin("temperature sensor", text, 0, count - 1);
}

void Control::ReplaceBanks(const Words& arguments) {
    CheckWords("banks", arguments, 1, 1 + Banks::kMaxBanks);
    const bool isAlarm = arguments[0] == "alarm";
    if (!isAlarm && arguments[0] != "relay") throw WrongWord("banks", arguments[0], "alarm, relay");
    // A command that lost its words must not remove every bank.
    if (arguments.size() == 1) throw Exception("banks %s: NAME=COUNT or none is missing", arguments[0].c_str());
    const bool isNone = arguments.size() == 2 && arguments[1] == "none";
    std::vector<Banks::Size> sizes;
    for (std::size_t i = 1; i < arguments.size() && !isNone; ++i) {
        const std::string& word = arguments[i];
        const std::size_t equals = word.rfind('=');
        if (equals == std::string::npos) throw Exception("not NAME=COUNT: %s", word.c_str());
        sizes.push_back({word.substr(0, equals), ParseNumber<int>(word.substr(equals + 1))});
    }
    Refusable([&] { (isAlarm ? _camera.alarms : _camera.relays).Replace(sizes); });
}

std::uint64_t Control::AddEvents(const Words& arguments) {
    Words values = arguments;
    int count = 1;
    if (values.size() >= 2 && values[values.size() - 2] == "--count") {
        count = ParseWithin("--count", values.back(), 1, EventQueue::kMaxWaiting);
        values.resize(values.size() - 2);
    }
    if (values.empty()) throw Exception("event: wrong number of values (0)");
    const std::string& name = values[0];
    const bool isTemperature = name == "temperature";
    if (!isTemperature && name != "voltage" && name != "power") {
        throw WrongWord("event", name, "temperature, voltage, power");
    }
    CheckWords(name, values, isTemperature ? 3 : 2, isTemperature ? 3 : 2);
    const int first = ParseWithin<int>(name, values.back());
    EventQueue::Emit emit;
    if (isTemperature) {
        const int sensor = ParseSensor(values[1]);
        auto& event = _services.temperature.OnTemperatureChange();
        emit = [&event, sensor](int degrees) { event.Fire(sensor, degrees); };
    } else {
        auto& event =
            name == "voltage" ? _services.voltage.OnVoltageStatusChange() : _services.power.OnPowerStatusChange();
        emit = [&event](int status) { event.Fire(status); };
    }
    const auto emitBecause = [this, cause = _history.CurrentCause(), emit = std::move(emit)](int value) {
        const History::Because because(_history, cause);
        emit(value);
    };
    const std::uint64_t last = _events.Add(first, count, emitBecause);
    EmitEvents();  // emits the first few before the answer
    return last;
}

}  // namespace dome
