#pragma once

#include "dome/model/Sensors.h"
#include "tavos/interfaces/IVoltageV2Provider.h"

namespace dome {

/// Observes the sensors: nobody may use them after the service is destroyed.
class VoltageService final : public tavos::interfaces::IVoltageV2Provider {
public:
    explicit VoltageService(Sensors& sensors) : _sensors(sensors) {
        _sensors.ObserveVoltage([this](int status) { _changed.Fire(status); });
    }

    int GetVoltageStatus() override { return _sensors.VoltageStatus(); }
    tavos::core::Event1<int>& OnVoltageStatusChange() override { return _changed; }

private:
    Sensors& _sensors;
    tavos::core::Event1<int> _changed;
};

}  // namespace dome
