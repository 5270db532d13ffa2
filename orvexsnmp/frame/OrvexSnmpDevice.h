#pragma once

#include <string>

#include "tavos/core/Logger.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/settings/TavosSettingsClient.h"

/// The camera's identity, read at the start and at each reload from the identity command, the version file and the
/// settings store. Owns the message bus and creates every provider. Agent's thread only.
class OrvexSnmpDevice {
public:
    /// Throws tavos::osa::Exception for a second instance or if the settings store cannot be read, and any exception of
    /// a provider's constructor.
    OrvexSnmpDevice();
    /// Does not reset the instance pointer (see ForgetInstance). Destroy the providers first.
    virtual ~OrvexSnmpDevice();
    OrvexSnmpDevice(const OrvexSnmpDevice&) = delete;
    OrvexSnmpDevice& operator=(const OrvexSnmpDevice&) = delete;

    static OrvexSnmpDevice* GetInstance() { return s_instance; }

    /// Call it after the destructor and before the next instance is created. Nothing in the module destroys the device.
    static void ForgetInstance() { s_instance = nullptr; }

    /// Reads identity and configuration again. Keeps an old text or configuration if the new one cannot be read or
    /// applied. For a configuration, one Error line gives the reason.
    void Reload();

    std::string GetModelName() const { return _modelName; }
    std::string GetModelNumber() const { return _modelNumber; }
    std::string GetSerialNumber() const { return _serialNumber; }
    std::string GetAssyId() const { return _assyId; }
    std::string GetAssyVer() const { return _assyVer; }
    std::string GetFwVer() const { return _fwVer; }
    std::string GetHwVer() const { return _hwVer; }
    std::string GetManufacturer() const { return _manufacturer; }
    std::string GetModuleVersion() const { return _moduleVersion; }

private:
    void LoadModelInfo();
    void LoadFwVersion();
    void LoadHwVersion();
    void LoadModuleVersion();
    void ReloadConfigs() const;
    void ApplyConfiguration() const;
    void ReloadSettings();
    void CreateProviders();

    /// The identity command's output for an option, without blanks at its ends; "ERROR" if the command cannot run.
    std::string myname(const std::string& option) const;

    static OrvexSnmpDevice* s_instance;

    tavos::msgbus::MsgBus _bus;
    tavos::core::Logger* _logger;
    tavos::settings::TavosSettingsClient _settings;
    std::string _settingsPath;
    std::string _modelName;
    std::string _modelNumber;
    std::string _serialNumber;
    std::string _assyId;
    std::string _assyVer;
    std::string _fwVer;
    std::string _hwVer;
    std::string _manufacturer;
    std::string _moduleVersion;
};
