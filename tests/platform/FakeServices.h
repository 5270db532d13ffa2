#pragma once

#include <cstdint>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

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

/// The calls that the services below received: "SetPosition 1 2". Any thread.
class Journal {
public:
    template <class... Arguments>
    void Note(const char* operation, const Arguments&... arguments) {
        std::ostringstream line;
        line << std::boolalpha << operation;
        ((line << ' ' << arguments), ...);
        std::lock_guard<std::mutex> lock(_mutex);
        _lines.push_back(line.str());
    }

    /// The calls since the last Take.
    std::vector<std::string> Take() {
        std::lock_guard<std::mutex> lock(_mutex);
        return std::exchange(_lines, {});
    }

private:
    std::mutex _mutex;
    std::vector<std::string> _lines;
};

namespace fake {

using Names = std::vector<std::string>;

struct Pan : tavos::interfaces::IPanProvider, Journal {
    void SetPosition(int position, int timeLimit) override { Note("SetPosition", position, timeLimit); }
    void SetPositionAtSpeed(int position, double speed, int timeLimit) override {
        Note("SetPositionAtSpeed", position, speed, timeLimit);
    }
    std::uint32_t GetPosition() override { return 4294967295U; }
    std::uint32_t GetMinPosition() override { return 1; }
    std::uint32_t GetMaxPosition() override { return 359999; }
    void SetRelativeVelocity(double velocity, int timeLimit) override {
        Note("SetRelativeVelocity", velocity, timeLimit);
    }
    double GetRelativeVelocity() override { return -0.1; }
};

struct Axis : tavos::interfaces::IAxisProvider, Journal {
    void SetPosition(int position, int timeLimit) override { Note("SetPosition", position, timeLimit); }
    void SetPositionAtSpeed(int position, double speed, int timeLimit) override {
        Note("SetPositionAtSpeed", position, speed, timeLimit);
    }
    std::uint32_t GetPosition() override { return static_cast<std::uint32_t>(-45000); }
    void SetRelativeVelocity(double velocity, int timeLimit) override {
        Note("SetRelativeVelocity", velocity, timeLimit);
    }
    double GetRelativeVelocity() override { return 1.0 / 3; }
    int GetMinPosition() override { return -2147483647 - 1; }
    int GetMaxPosition() override { return 2147483647; }
};

struct Zoom : tavos::interfaces::IZoomProvider, Journal {
    void SetMagnificationThousandthsX(std::uint32_t magnification, int timeLimit) override {
        Note("SetMagnificationThousandthsX", magnification, timeLimit);
    }
    void SetMaxMagnificationThousandthsX(std::uint32_t magnification) override {
        Note("SetMaxMagnificationThousandthsX", magnification);
    }
    std::uint32_t GetMagnificationThousandthsX() override { return 1; }
    std::uint32_t GetMaxMagnificationThousandthsX() override { return 2; }
    std::uint32_t GetMaxDigitalMagnificationThousandthsX() override { return 3; }
    std::uint32_t GetMaxOpticalMagnificationThousandthsX() override { return 4; }
    void ZoomRelative(int direction, int timeLimit) override { Note("ZoomRelative", direction, timeLimit); }
};

struct Focus : tavos::interfaces::IFocusProvider, Journal {
    void SetAutoFocus(bool enabled) override { Note("SetAutoFocus", enabled); }
    void MoveFocus(int direction) override { Note("MoveFocus", direction); }
};

struct FocusV2 : tavos::interfaces::IFocusV2Provider, Journal {
    void AutoFocus(bool start) override { Note("AutoFocus", start); }
    double GetMinPosition() override { return 0.5; }
    double GetMaxPosition() override { return 99.5; }
    double GetMinTranslation() override { return -100; }
    double GetMaxTranslation() override { return 100; }
    double GetPosition() override { return 1e-300; }
    void SetPosition(double position) override { Note("SetPosition", position); }
    void RelativeFocus(double translation) override { Note("RelativeFocus", translation); }
};

struct Iris : tavos::interfaces::IIrisProvider, Journal {
    void SetAutoIris(bool enabled) override { Note("SetAutoIris", enabled); }
    bool GetAutoIris() override { return true; }
    void MoveIris(int direction) override { Note("MoveIris", direction); }
};

struct Presets : tavos::interfaces::IPresetsProvider {};

struct PresetsV2 : tavos::interfaces::IPresetsV2Provider {
    std::uint32_t GetMaxPresets() override { return 256; }
};

struct Alarm : tavos::interfaces::IAlarmV3Provider, Journal {
    Names GetBankNames() override { return {"door", "", "Tür \xE2\x82\xAC"}; }
    int GetBankAlarmCount(const std::string& bank) override {
        Note("GetBankAlarmCount", bank);
        return 7;
    }
    int GetAlarmCount() override { return 9; }
    bool GetAlarmState(const std::string& bank, int alarm) override {
        Note("GetAlarmState", bank, alarm);
        return alarm == 1;
    }
};

struct Relay : tavos::interfaces::IRelayV3Provider, Journal {
    Names GetBankNames() override { return {}; }
    int GetBankRelayCount(const std::string& bank) override {
        Note("GetBankRelayCount", bank);
        return 3;
    }
    int GetRelayCount() override { return 4; }
    bool GetRelayState(const std::string& bank, int relay) override {
        Note("GetRelayState", bank, relay);
        return relay == 0;
    }
    void ClearRelay(const std::string& bank, int relay, int value) override { Note("ClearRelay", bank, relay, value); }
    void SetRelay(const std::string& bank, int relay, int value) override { Note("SetRelay", bank, relay, value); }
};

struct Temperature : tavos::interfaces::ITemperatureV2Provider, Journal {
    int GetTemperatureDegreesCelsius(int sensor) override {
        Note("GetTemperatureDegreesCelsius", sensor);
        return -40;
    }
    tavos::core::Event2<int, int>& OnTemperatureChange() override { return change; }
    tavos::core::Event2<int, int> change;
};

struct Voltage : tavos::interfaces::IVoltageV2Provider {
    int GetVoltageStatus() override { return 2; }
    tavos::core::Event1<int>& OnVoltageStatusChange() override { return change; }
    tavos::core::Event1<int> change;
};

struct Power : tavos::interfaces::IPowerV2Provider {
    int GetPowerStatus() override { return 1; }
    tavos::core::Event1<int>& OnPowerStatusChange() override { return change; }
    tavos::core::Event1<int> change;
};

struct Fan : tavos::interfaces::IFanV2Provider {
    bool IsRunning() override { return true; }
};

}  // namespace fake
