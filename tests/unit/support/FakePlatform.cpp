#include "support/FakePlatform.h"

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "support/Journal.h"
#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"
#include "tavos/interfaces/IAlarmV3Provider.h"
#include "tavos/interfaces/IAxisProvider.h"
#include "tavos/interfaces/IFanV2Provider.h"
#include "tavos/interfaces/IFocusProvider.h"
#include "tavos/interfaces/IFocusV2Provider.h"
#include "tavos/interfaces/IIrisProvider.h"
#include "tavos/interfaces/IPanProvider.h"
#include "tavos/interfaces/IPowerV2Provider.h"
#include "tavos/interfaces/IPresetsProvider.h"
#include "tavos/interfaces/IPresetsV2Provider.h"
#include "tavos/interfaces/IRelayV3Provider.h"
#include "tavos/interfaces/ITemperatureV2Provider.h"
#include "tavos/interfaces/IVoltageV2Provider.h"
#include "tavos/interfaces/IZoomProvider.h"
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

/// Records a call as "call SERVICE OPERATION ARGUMENTS", and throws if the test requests it.
template <class... Arguments>
void Record(const char* service, const char* operation, const Arguments&... arguments) {
    const auto call = journal::Join(service, operation, arguments...);
    journal::Add("call " + call);
    if (Camera().onCall) Camera().onCall(call);
    MayFail(std::string(service) + "." + operation);
}

template <class Client>
Client* Create(const char* service, const tavos::msgbus::IMsgBus* bus) {
    journal::Add(journal::Join("bus CreateClient", service));
    Camera().clientBuses.emplace_back(service, bus);
    MayFail(std::string(service) + ".CreateClient");
    return new Client();
}

struct Deleted {
    explicit Deleted(const char* service) : _service(service) {}
    Deleted(const Deleted&) = delete;
    Deleted& operator=(const Deleted&) = delete;
    ~Deleted() { journal::Add(journal::Join("bus DeleteClient", _service)); }
    const char* _service;
};

using namespace tavos::interfaces;

struct Pan final : IPanProvider {
    Deleted deleted{"pan"};
    void SetPosition(int position, int limit) override { Record("pan", "SetPosition", position, limit); }
    void SetPositionAtSpeed(int position, double speed, int limit) override {
        Record("pan", "SetPositionAtSpeed", position, speed, limit);
    }
    std::uint32_t GetPosition() override { return Record("pan", "GetPosition"), Camera().panPosition; }
    std::uint32_t GetMinPosition() override { return Record("pan", "GetMinPosition"), Camera().panMinPosition; }
    std::uint32_t GetMaxPosition() override { return Record("pan", "GetMaxPosition"), Camera().panMaxPosition; }
    void SetRelativeVelocity(double velocity, int limit) override {
        Record("pan", "SetRelativeVelocity", velocity, limit);
    }
    double GetRelativeVelocity() override { return Record("pan", "GetRelativeVelocity"), Camera().panVelocity; }
};

struct Tilt final : IAxisProvider {
    Deleted deleted{"tilt"};
    void SetPosition(int position, int limit) override { Record("tilt", "SetPosition", position, limit); }
    void SetPositionAtSpeed(int position, double speed, int limit) override {
        Record("tilt", "SetPositionAtSpeed", position, speed, limit);
    }
    std::uint32_t GetPosition() override { return Record("tilt", "GetPosition"), Camera().tiltPosition; }
    void SetRelativeVelocity(double velocity, int limit) override {
        Record("tilt", "SetRelativeVelocity", velocity, limit);
    }
    double GetRelativeVelocity() override { return Record("tilt", "GetRelativeVelocity"), Camera().tiltVelocity; }
    int GetMinPosition() override { return Record("tilt", "GetMinPosition"), Camera().tiltMinPosition; }
    int GetMaxPosition() override { return Record("tilt", "GetMaxPosition"), Camera().tiltMaxPosition; }
};

struct Zoom final : IZoomProvider {
    Deleted deleted{"zoom"};
    void SetMagnificationThousandthsX(std::uint32_t value, int limit) override {
        Record("zoom", "SetMagnificationThousandthsX", value, limit);
    }
    void SetMaxMagnificationThousandthsX(std::uint32_t value) override {
        Record("zoom", "SetMaxMagnificationThousandthsX", value);
    }
    std::uint32_t GetMagnificationThousandthsX() override {
        return Record("zoom", "GetMagnificationThousandthsX"), Camera().magnification;
    }
    std::uint32_t GetMaxMagnificationThousandthsX() override {
        return Record("zoom", "GetMaxMagnificationThousandthsX"), Camera().maxMagnification;
    }
    std::uint32_t GetMaxDigitalMagnificationThousandthsX() override {
        return Record("zoom", "GetMaxDigitalMagnificationThousandthsX"), Camera().maxDigitalMagnification;
    }
    std::uint32_t GetMaxOpticalMagnificationThousandthsX() override {
        return Record("zoom", "GetMaxOpticalMagnificationThousandthsX"), Camera().maxOpticalMagnification;
    }
    void ZoomRelative(int direction, int limit) override { Record("zoom", "ZoomRelative", direction, limit); }
};

struct Focus final : IFocusProvider {
    Deleted deleted{"focus"};
    void SetAutoFocus(bool enabled) override { Record("focus", "SetAutoFocus", enabled); }
    void MoveFocus(int direction) override { Record("focus", "MoveFocus", direction); }
};

struct FocusV2 final : IFocusV2Provider {
    Deleted deleted{"focus2"};
    void AutoFocus(bool start) override { Record("focus2", "AutoFocus", start); }
    double GetMinPosition() override { return Record("focus2", "GetMinPosition"), Camera().focusMinPosition; }
    double GetMaxPosition() override { return Record("focus2", "GetMaxPosition"), Camera().focusMaxPosition; }
    double GetMinTranslation() override { return Record("focus2", "GetMinTranslation"), Camera().focusMinTranslation; }
    double GetMaxTranslation() override { return Record("focus2", "GetMaxTranslation"), Camera().focusMaxTranslation; }
    double GetPosition() override { return Record("focus2", "GetPosition"), Camera().focusPosition; }
    void SetPosition(double position) override { Record("focus2", "SetPosition", position); }
    void RelativeFocus(double translation) override { Record("focus2", "RelativeFocus", translation); }
};

struct Iris final : IIrisProvider {
    Deleted deleted{"iris"};
    void SetAutoIris(bool enabled) override { Record("iris", "SetAutoIris", enabled); }
    bool GetAutoIris() override { return Record("iris", "GetAutoIris"), Camera().autoIris; }
    void MoveIris(int direction) override { Record("iris", "MoveIris", direction); }
};

struct Presets final : IPresetsProvider {
    Deleted deleted{"presets"};
};

struct PresetsV2 final : IPresetsV2Provider {
    Deleted deleted{"presets2"};
    std::uint32_t GetMaxPresets() override { return Record("presets2", "GetMaxPresets"), Camera().maxPresets; }
};

std::vector<std::string> Names(const FakeCamera::Banks& banks) {
    std::vector<std::string> names;
    for (const auto& bank : banks.banks) names.push_back(bank.first);
    return names;
}

int Count(const FakeCamera::Banks& banks, const std::string& name) {
    if (const auto found = banks.bankCount.find(name); found != banks.bankCount.end()) return found->second;
    for (const auto& bank : banks.banks) {
        if (bank.first == name) return static_cast<int>(bank.second.size());
    }
    throw tavos::osa::Exception("no bank %s", name.c_str());
}

int Total(const FakeCamera::Banks& banks) {
    if (banks.total) return *banks.total;
    int total = 0;
    for (const auto& bank : banks.banks) total += static_cast<int>(bank.second.size());
    return total;
}

/// Can also fail for one input only: "alarm.GetAlarmState BNK2 0".
template <class Banks>
auto State(Banks& banks, const char* operation, const std::string& name, int id) {
    MayFail(journal::Join(operation, name, id));
    for (auto& bank : banks.banks) {
        if (bank.first == name) return bank.second.at(static_cast<std::size_t>(id));
    }
    throw tavos::osa::Exception("no bank %s", name.c_str());
}

struct Alarm final : IAlarmV3Provider {
    Deleted deleted{"alarm"};
    std::vector<std::string> GetBankNames() override { return Record("alarm", "GetBankNames"), Names(Camera().alarms); }
    int GetBankAlarmCount(const std::string& bank) override {
        Record("alarm", "GetBankAlarmCount", bank);
        MayFail("alarm.GetBankAlarmCount " + bank);
        return Count(Camera().alarms, bank);
    }
    int GetAlarmCount() override { return Record("alarm", "GetAlarmCount"), Total(Camera().alarms); }
    bool GetAlarmState(const std::string& bank, int alarm) override {
        Record("alarm", "GetAlarmState", bank, alarm);
        return State(Camera().alarms, "alarm.GetAlarmState", bank, alarm);
    }
};

struct Relay final : IRelayV3Provider {
    Deleted deleted{"relay"};
    std::vector<std::string> GetBankNames() override { return Record("relay", "GetBankNames"), Names(Camera().relays); }
    int GetBankRelayCount(const std::string& bank) override {
        Record("relay", "GetBankRelayCount", bank);
        MayFail("relay.GetBankRelayCount " + bank);
        return Count(Camera().relays, bank);
    }
    int GetRelayCount() override { return Record("relay", "GetRelayCount"), Total(Camera().relays); }
    bool GetRelayState(const std::string& bank, int relay) override {
        Record("relay", "GetRelayState", bank, relay);
        return State(Camera().relays, "relay.GetRelayState", bank, relay);
    }
    void ClearRelay(const std::string& bank, int relay, int value) override {
        Record("relay", "ClearRelay", bank, relay, value);
    }
    void SetRelay(const std::string& bank, int relay, int value) override {
        Record("relay", "SetRelay", bank, relay, value);
    }
};

struct Temperature final : ITemperatureV2Provider {
    Deleted deleted{"temperature"};
    int GetTemperatureDegreesCelsius(int sensor) override {
        return Record("temperature", "GetTemperatureDegreesCelsius", sensor), Camera().temperature;
    }
    tavos::core::Event2<int, int>& OnTemperatureChange() override { return Camera().temperatureChange; }
};

struct Voltage final : IVoltageV2Provider {
    Deleted deleted{"voltage"};
    int GetVoltageStatus() override { return Record("voltage", "GetVoltageStatus"), Camera().voltage; }
    tavos::core::Event1<int>& OnVoltageStatusChange() override { return Camera().voltageChange; }
};

struct Power final : IPowerV2Provider {
    Deleted deleted{"power"};
    int GetPowerStatus() override { return Record("power", "GetPowerStatus"), Camera().power; }
    tavos::core::Event1<int>& OnPowerStatusChange() override { return Camera().powerChange; }
};

struct Fan final : IFanV2Provider {
    Deleted deleted{"fan"};
    bool IsRunning() override { return Record("fan", "IsRunning"), false; }
};

}  // namespace

namespace tavos::interfaces {

using msgbus::IMsgBus;

IPanProvider* IPanProvider::CreateClient(IMsgBus* bus) {
    return Create<Pan>("pan", bus);
}
IAxisProvider* IAxisProvider::CreateClient(IMsgBus* bus, const char* axis) {
    return Create<Tilt>(axis, bus);
}
IZoomProvider* IZoomProvider::CreateClient(IMsgBus* bus) {
    return Create<Zoom>("zoom", bus);
}
IFocusProvider* IFocusProvider::CreateClient(IMsgBus* bus) {
    return Create<Focus>("focus", bus);
}
IFocusV2Provider* IFocusV2Provider::CreateClient(IMsgBus* bus) {
    return Create<FocusV2>("focus2", bus);
}
IIrisProvider* IIrisProvider::CreateClient(IMsgBus* bus) {
    return Create<Iris>("iris", bus);
}
IPresetsProvider* IPresetsProvider::CreateClient(IMsgBus* bus) {
    return Create<Presets>("presets", bus);
}
IPresetsV2Provider* IPresetsV2Provider::CreateClient(IMsgBus* bus) {
    return Create<PresetsV2>("presets2", bus);
}
IAlarmV3Provider* IAlarmV3Provider::CreateClient(IMsgBus* bus) {
    return Create<Alarm>("alarm", bus);
}
IRelayV3Provider* IRelayV3Provider::CreateClient(IMsgBus* bus) {
    return Create<Relay>("relay", bus);
}
ITemperatureV2Provider* ITemperatureV2Provider::CreateClient(IMsgBus* bus) {
    return Create<Temperature>("temperature", bus);
}
IVoltageV2Provider* IVoltageV2Provider::CreateClient(IMsgBus* bus) {
    return Create<Voltage>("voltage", bus);
}
IPowerV2Provider* IPowerV2Provider::CreateClient(IMsgBus* bus) {
    return Create<Power>("power", bus);
}
IFanV2Provider* IFanV2Provider::CreateClient(IMsgBus* bus) {
    return Create<Fan>("fan", bus);
}

}  // namespace tavos::interfaces
