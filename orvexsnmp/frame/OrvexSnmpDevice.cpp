#include "frame/OrvexSnmpDevice.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <tuple>

#include "core/FixedLogging.h"
#include "core/GuardedHandler.h"
#include "core/NetSnmp.h"
#include "core/TextUtilities.h"
#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpPressure.h"
#include "io/OrvexSnmpRelay.h"
#include "lens/OrvexSnmpFocus.h"
#include "lens/OrvexSnmpIris.h"
#include "lens/OrvexSnmpWiper.h"
#include "lens/OrvexSnmpZoom.h"
#include "motion/OrvexSnmpPan.h"
#include "motion/OrvexSnmpPresets.h"
#include "motion/OrvexSnmpTilt.h"
#include "sensors/OrvexSnmpPower.h"
#include "sensors/OrvexSnmpTemp.h"
#include "sensors/OrvexSnmpVoltage.h"
#include "tavos/core/IniFile.h"
#include "tavos/osa/Exception.h"

using tavos::core::Logger;

namespace {

struct ClosePipe {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
};

constexpr auto kFailed = "ERROR";

constexpr auto kModelNameKey = "[Device/ReadOnly]ProductFamily";
constexpr auto kManufacturerKey = "[Device/ReadOnly]Manufacturer";

bool IsMissing(const std::string& text) {
    return text.empty() || text == kFailed;
}

}  // namespace

OrvexSnmpDevice* OrvexSnmpDevice::s_instance = nullptr;

OrvexSnmpDevice::OrvexSnmpDevice()
    : _logger(Logger::GetLogger("OrvexSnmp")),
      _settings(tavos::settings::TavosSettingsClient::kReadWrite),
      _settingsPath("Applications/OrvexSnmp") {
    if (s_instance != nullptr) {
        _logger->Error("%s: Duplicate instance, exiting!", "OrvexSnmpDevice");
        throw tavos::osa::Exception("Duplicate Instance");
    }
    s_instance = this;
    // Fixed: docs/contract.md, enter-lines.
    _logger->Trace("%s: Enter.", "OrvexSnmpDevice");
    LoadModelInfo();
    LoadFwVersion();
    LoadHwVersion();
    ReloadConfigs();
    _modelName = _settings.GetValue(kModelNameKey);
    _manufacturer = _settings.GetValue(kManufacturerKey);
    LoadModuleVersion();
    CreateProviders();
    _bus.StartServer();
    SetGuardedBus(&_bus);
}

OrvexSnmpDevice::~OrvexSnmpDevice() {
    SetGuardedBus(nullptr);
    _logger = nullptr;
}

void OrvexSnmpDevice::CreateProviders() {
    // From now on each provider's GetInstance returns it.
    new OrvexSnmpTemp(_bus);
    new OrvexSnmpAlarm(_bus);
    new OrvexSnmpRelay(_bus);
    new OrvexSnmpPower(_bus);
    new OrvexSnmpVoltage(_bus);
    new OrvexSnmpPresets(_bus);
    new OrvexSnmpFocus(_bus);
    new OrvexSnmpIris(_bus);
    new OrvexSnmpZoom(_bus);
    new OrvexSnmpPan(_bus);
    new OrvexSnmpTilt(_bus);
    new OrvexSnmpWiper(_bus);
    new OrvexSnmpPressure(_bus);
}

void OrvexSnmpDevice::Reload() {
    const auto before = std::make_tuple(_modelNumber, _serialNumber, _assyId, _assyVer);
    LoadModelInfo();
    if (IsMissing(_modelNumber)) _modelNumber = std::get<0>(before);
    if (IsMissing(_serialNumber)) _serialNumber = std::get<1>(before);
    if (IsMissing(_assyId)) std::tie(std::ignore, std::ignore, _assyId, _assyVer) = before;
    LoadFwVersion();
    LoadHwVersion();
    ReloadSettings();
    LoadModuleVersion();
}

void OrvexSnmpDevice::ReloadSettings() {
    std::string reason;
    try {
        _modelName = _settings.GetValue(kModelNameKey);
        _manufacturer = _settings.GetValue(kManufacturerKey);
        ApplyConfiguration();
    } catch (const std::exception& e) {
        reason = e.what();
    } catch (...) {
        reason = "unknown exception";
    }
    // Apply the logging setup of a start. It must come before the log line: a failed configuration leaves no appender.
    ApplyFixedLogging();
    if (!reason.empty()) {
        _logger->Error("%s: the configuration stays as it was: %s", "OrvexSnmpDevice", reason.c_str());
    }
}

std::string OrvexSnmpDevice::myname(const std::string& option) const {
    std::string result;
    try {
        const std::string command = "myname -" + option;
        if (const std::unique_ptr<std::FILE, ClosePipe> pipe{popen(command.c_str(), "r")}) {
            char piece[128];
            while (std::fgets(piece, sizeof piece, pipe.get()) != nullptr) result += piece;
        } else {
            result = kFailed;
        }
    } catch (...) {
        result = kFailed;
    }
    return trim(result, " \t\n");
}

void OrvexSnmpDevice::LoadModelInfo() {
    constexpr auto kName = "LoadModelInfo";
    _modelNumber = myname("m");
    _logger->Debug("%s: Read Model Number %s", kName, _modelNumber.c_str());
    _serialNumber = myname("s");
    _logger->Debug("%s: Read Serial Number %s", kName, _serialNumber.c_str());
    const std::string assembly = myname("w");
    const auto split = assembly.find('-');
    _assyId = assembly.substr(0, split);
    // Without a "-" both are the whole text, because npos + 1 is 0. Fixed: docs/contract.md, assembly-without-dash.
    _assyVer = assembly.substr(split + 1);
    _logger->Debug("%s: Read Assembly ID %s", kName, _assyId.c_str());
    _logger->Debug("%s: Read Assembly Version %s", kName, _assyVer.c_str());
}

void OrvexSnmpDevice::LoadFwVersion() {
    constexpr auto kName = "LoadFwVersion";
    std::error_code error;
    std::ifstream file;
    // See docs/contract.md, version-file.
    if (std::filesystem::is_regular_file(ORVEX_VERSION_FILE, error)) file.open(ORVEX_VERSION_FILE);
    if (!file.is_open()) {
        _logger->Error("%s: could not open %s", kName, ORVEX_VERSION_FILE);
        return;
    }
    file >> _fwVer;
    _logger->Information("%s: firmware version = %s", kName, _fwVer.c_str());
}

void OrvexSnmpDevice::LoadHwVersion() {
    _hwVer = _assyId + "-" + _assyVer;
}

void OrvexSnmpDevice::LoadModuleVersion() {
    constexpr std::size_t kBuildCharacters = 8;
    std::string base;
    std::string build;
    const auto split = _fwVer.find('-');
    if (split != std::string::npos) {
        base = _fwVer.substr(0, split);
        build = _fwVer.substr(split + 1, kBuildCharacters);
    }
    // Fixed: docs/contract.md, module-version-turned.
    _moduleVersion = build + " - v" + base;
}

void OrvexSnmpDevice::ApplyConfiguration() const {
    tavos::core::IniFile configuration;
    _settings.GetSettings(_settingsPath, configuration);
    Logger::ClearAppenders();
    Logger::ConfigureLogging(configuration, "Applications/OrvexSnmp");
    _logger->Information("just reconfigured!");
}

void OrvexSnmpDevice::ReloadConfigs() const {
    try {
        ApplyConfiguration();
    } catch (const std::exception& e) {
        _logger->Error("Error reloading, invalid configuration");
        // See docs/contract.md, configuration-reason.
        snmp_log(LOG_ERR, "orvexsnmp: invalid configuration: %s\n", e.what());
        throw tavos::osa::Exception("invalid configuration");
    }
}
