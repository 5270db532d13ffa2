#include "device/OrvexSnmpDevice.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>

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
    _logger->Trace("%s: Enter.", "OrvexSnmpDevice");
    LoadModelInfo();
    LoadFwVersion();
    LoadHwVersion();
    ReloadConfigs();
    _modelName = _settings.GetValue("[Device/ReadOnly]ProductFamily");
    _manufacturer = _settings.GetValue("[Device/ReadOnly]Manufacturer");
    LoadModuleVersion();
    CreateProviders();
    _bus.StartServer();
}

OrvexSnmpDevice::~OrvexSnmpDevice() {
    _logger = nullptr;
}

void OrvexSnmpDevice::CreateProviders() {
    // Each is found through its own GetInstance from here on.
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

void OrvexSnmpDevice::DeleteProviders() {
    delete OrvexSnmpPressure::GetInstance();
    delete OrvexSnmpWiper::GetInstance();
    delete OrvexSnmpTilt::GetInstance();
    delete OrvexSnmpPan::GetInstance();
    delete OrvexSnmpZoom::GetInstance();
    delete OrvexSnmpIris::GetInstance();
    delete OrvexSnmpFocus::GetInstance();
    delete OrvexSnmpPresets::GetInstance();
    delete OrvexSnmpVoltage::GetInstance();
    delete OrvexSnmpPower::GetInstance();
    delete OrvexSnmpRelay::GetInstance();
    delete OrvexSnmpAlarm::GetInstance();
    delete OrvexSnmpTemp::GetInstance();
}

std::string OrvexSnmpDevice::myname(const std::string& option) const {
    std::string result;
    try {
        const std::string command = "myname -" + option;
        if (const std::unique_ptr<std::FILE, ClosePipe> pipe{popen(command.c_str(), "r")}) {
            char piece[128];
            while (std::fgets(piece, sizeof piece, pipe.get()) != nullptr) result += piece;
        } else {
            result = "ERROR";
        }
    } catch (...) {
        result = "ERROR";
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
    // Without a "-" the version is the whole text too: npos + 1 is 0.
    _assyVer = assembly.substr(split + 1);
    _logger->Debug("%s: Read Assembly ID %s", kName, _assyId.c_str());
    _logger->Debug("%s: Read Assembly Version %s", kName, _assyVer.c_str());
}

void OrvexSnmpDevice::LoadFwVersion() {
    constexpr auto kName = "LoadFwVersion";
    std::ifstream file(ORVEX_VERSION_FILE);
    if (!file) {
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
    _moduleVersion = build + " - v" + base;
}

void OrvexSnmpDevice::ReloadConfigs() const {
    try {
        tavos::core::IniFile configuration;
        _settings.GetSettings(_settingsPath, configuration);
        Logger::ClearAppenders();
        Logger::ConfigureLogging(configuration, "Applications/OrvexSnmp");
        _logger->Information("just reconfigured!");
    } catch (const std::exception&) {
        _logger->Error("Error reloading, invalid configuration");
        throw tavos::osa::Exception("invalid configuration");
    }
}
