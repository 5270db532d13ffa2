#pragma once

#include "dome/model/Sensors.h"
#include "tavos/interfaces/IPowerV2Provider.h"

namespace dome {

/// Observes the sensors: nobody may use them after the service is destroyed.
class PowerService final : public tavos::interfaces::IPowerV2Provider {
public:
    explicit PowerService(Sensors& sensors) : _sensors(sensors) {
        _sensors.ObservePower([this](int status) { _changed.Fire(status); });
    }

    int GetPowerStatus() override { return _sensors.PowerStatus(); }
    tavos::core::Event1<int>& OnPowerStatusChange() override { return _changed; }

private:
    Sensors& _sensors;
    tavos::core::Event1<int> _changed;
};

}  // namespace dome
