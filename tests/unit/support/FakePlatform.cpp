#include "support/FakePlatform.h"

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "support/Journal.h"
#include "support/Recorder.h"
#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/osa/Exception.h"
#include "tavos/settings/TavosSettingsClient.h"

namespace {

std::unique_ptr<FakeCamera> s_camera = std::make_unique<FakeCamera>();

void MayFail(const std::string& operation) {
    if (Camera().failing.count(operation) == 0) {
        if (Camera().failingOnce.count(operation) == 0) return;  // only looks: log lines come from any thread
        Camera().failingOnce.erase(operation);
    }
    if (Camera().throwsInt) throw 42;
    if (Camera().throwsRuntimeError) throw std::runtime_error(operation);
    throw tavos::osa::Exception("%s fails", operation.c_str());
}

}  // namespace

FakeCamera& Camera() {
    return *s_camera;
}

void ResetCamera() {
    s_camera = std::make_unique<FakeCamera>();
    journal::Watch(nullptr);
    journal::Clear();
}

// --- logger ---

namespace tavos::core {

std::atomic<int> Logger::s_level{kTrace};

Logger* Logger::GetLogger(const char* name) {
    static std::map<std::string, std::unique_ptr<Logger>> loggers;
    auto& logger = loggers[name];
    if (logger == nullptr) logger = std::make_unique<Logger>(name);
    return logger.get();
}

void Logger::ClearAppenders() {
    journal::Add("logger ClearAppenders");
    MayFail("logger.ClearAppenders");
}

void Logger::ConfigureLogging(const IniFile& ini, const char* section) {
    std::string line = journal::Join("logger ConfigureLogging", section);
    if (const auto found = ini.Sections().find(section); found != ini.Sections().end()) {
        for (const auto& [key, value] : found->second) line += " " + key + "=" + value;
    }
    journal::Add(line);
    MayFail("logger.ConfigureLogging");
}

void Logger::EnableDebugLogging() {
    journal::Add("logger EnableDebugLogging");
}

void Logger::LogMessageV(int level, const char* format, va_list arguments) const {
    char text[4096];
    std::vsnprintf(text, sizeof text, format, arguments);
    if (Camera().onLog) Camera().onLog(text);
    const auto line = "log " + std::to_string(level) + " " + text;
    journal::Add(line);
    MayFail(line);
}

#define LEVEL_OPERATION(operation, level)                   \
    void Logger::operation(const char* format, ...) const { \
        va_list arguments;                                  \
        va_start(arguments, format);                        \
        LogMessageV(level, format, arguments);              \
        va_end(arguments);                                  \
    }
LEVEL_OPERATION(Error, kError)
LEVEL_OPERATION(Information, kInformation)
LEVEL_OPERATION(Debug, kDebug)
LEVEL_OPERATION(Trace, kTrace)
#undef LEVEL_OPERATION

}  // namespace tavos::core

// --- bus ---

namespace tavos::msgbus {

class Connection {};

MsgBus::MsgBus() : _requestTime(1000) {
    journal::Add("bus Open");
    Camera().openedBuses.push_back(this);
}
MsgBus::~MsgBus() {
    journal::Add("bus Close");
}
void MsgBus::StartServer() {
    journal::Add("bus StartServer");
    MayFail("bus.StartServer");
}
void MsgBus::BeginWork(Work work) {
    Camera().begun.push_back(work);
}
Connection& MsgBus::GetConnection() {
    return *_connection;
}

}  // namespace tavos::msgbus

// --- settings store ---

namespace tavos::settings {

struct TavosSettingsClient::Store {};

TavosSettingsClient::TavosSettingsClient(int operationMode) {
    journal::Add(journal::Join("settings Open", operationMode));
}
TavosSettingsClient::~TavosSettingsClient() {
    journal::Add("settings Close");
}

std::string TavosSettingsClient::GetValue(const std::string& key) const {
    journal::Add("settings GetValue " + key);
    MayFail("settings.GetValue");
    return Camera().settings[key];
}

void TavosSettingsClient::SetValue(const std::string& key, const std::string& value) {
    journal::Add("settings SetValue " + key + " " + value);
    MayFail("settings.SetValue");
    Camera().settings[key] = value;
}

void TavosSettingsClient::GetSettings(const std::string& path, core::IniFile& ini) const {
    journal::Add("settings GetSettings " + path);
    MayFail("settings.GetSettings");
    const std::string prefix = "[" + path + "]";
    for (const auto& [key, value] : Camera().settings) {
        if (key.compare(0, prefix.size(), prefix) == 0) ini.SetValue(path, key.substr(prefix.size()), value);
    }
}

}  // namespace tavos::settings

// --- service clients ---

namespace {

const std::map<std::string, std::string> kShortNames = {
    {"org.tavos.Alarm3", "alarm"},      {"org.tavos.Axis1.tilt", "tilt"}, {"org.tavos.Fan2", "fan"},
    {"org.tavos.Focus1", "focus"},      {"org.tavos.Focus2", "focus2"},   {"org.tavos.Iris1", "iris"},
    {"org.tavos.Pan1", "pan"},          {"org.tavos.Power2", "power"},    {"org.tavos.Presets1", "presets"},
    {"org.tavos.Presets2", "presets2"}, {"org.tavos.Relay3", "relay"},    {"org.tavos.Temperature2", "temperature"},
    {"org.tavos.Voltage2", "voltage"},  {"org.tavos.Zoom1", "zoom"},
};

const std::vector<bool>& Bank(const FakeCamera::Banks& banks, const std::string& name) {
    for (const auto& bank : banks.banks) {
        if (bank.first == name) return bank.second;
    }
    throw tavos::osa::Exception("no bank %s", name.c_str());
}

double Total(const FakeCamera::Banks& banks) {
    std::size_t total = 0;
    for (const auto& bank : banks.banks) total += bank.second.size();
    return banks.total.value_or(static_cast<int>(total));
}

/// A handler of the camera's event that fires a client's event.
auto* Forward(tavos::core::Event1<int>& to) {
    using Event = tavos::core::Event1<int>;
    using Fire = void (Event::*)(const int&);
    return new tavos::core::VoidObjectMethodDelegate1<Event, Fire, int>(&to, &Event::Fire<int>);
}
auto* Forward(tavos::core::Event2<int, int>& to) {
    using Event = tavos::core::Event2<int, int>;
    using Fire = void (Event::*)(const int&, const int&);
    return new tavos::core::VoidObjectMethodDelegate2<Event, Fire, int, int>(&to, &Event::Fire<int, int>);
}

/// The test may have replaced the camera when the subscription ends.
template <class Event>
Recorder::Subscription Forwarded(Event FakeCamera::*from, Event& to) {
    (Camera().*from).AddHandler(Forward(to));
    return {&to, [from](void* handler) { (Camera().*from).RemoveHandlers(handler); }};
}

}  // namespace

Recorder::Recorder(const tavos::msgbus::IMsgBus* bus, const tavos::msgbus::ServiceAddress& address)
    : _service(kShortNames.at(address.service)) {
    journal::Add("bus CreateClient " + _service);
    Camera().clientBuses.emplace_back(_service, bus);
    MayFail(_service + ".CreateClient");
}

Recorder::~Recorder() {
    journal::Add("bus DeleteClient " + _service);
}

void Recorder::Record(const std::string& operation, const std::string& arguments) const {
    const std::string call = _service + " " + operation + arguments;
    journal::Add("call " + call);
    if (Camera().onCall) Camera().onCall(call);
    MayFail(_service + "." + operation);
    if (!arguments.empty()) MayFail(_service + "." + operation + arguments);
}

const FakeCamera::Banks* Recorder::Banks() const {
    if (_service == "alarm") return &Camera().alarms;
    return _service == "relay" ? &Camera().relays : nullptr;
}

std::vector<std::string> Recorder::BankNames() const {
    std::vector<std::string> names;
    for (const auto& bank : Banks()->banks) names.push_back(bank.first);
    return names;
}

double Recorder::Number(const std::string& operation) const {
    if (Banks()) return Total(*Banks());
    const auto answer = Camera().answers.find(_service + "." + operation);
    return answer != Camera().answers.end() ? answer->second : 0;
}

double Recorder::Number(const std::string& operation, int /*sensor*/) const {
    return Number(operation);
}

double Recorder::Number(const std::string& /*operation*/, const std::string& bank) const {
    const auto counted = Banks()->bankCount.find(bank);
    return counted != Banks()->bankCount.end() ? counted->second : static_cast<double>(Bank(*Banks(), bank).size());
}

double Recorder::Number(const std::string& /*operation*/, const std::string& bank, int id) const {
    return Bank(*Banks(), bank).at(static_cast<std::size_t>(id));
}

Recorder::Subscription Recorder::Subscribe(const char* name, tavos::core::Event1<int>& event) const {
    const bool isPower = std::string(name) == "PowerStatusChange";
    return Forwarded(isPower ? &FakeCamera::powerChange : &FakeCamera::voltageChange, event);
}

Recorder::Subscription Recorder::Subscribe(const char* /*name*/, tavos::core::Event2<int, int>& event) const {
    return Forwarded(&FakeCamera::temperatureChange, event);
}
