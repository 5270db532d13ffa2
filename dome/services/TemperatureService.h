#pragma once

#include "Arguments.h"
#include "dome/model/Sensors.h"
#include "tavos/interfaces/ITemperatureV2Provider.h"

namespace dome {

/// Observes the sensors: nobody may use them after the service is destroyed.
class TemperatureService final : public tavos::interfaces::ITemperatureV2Provider {
public:
    explicit TemperatureService(Sensors& sensors) : _sensors(sensors) {
        _sensors.ObserveTemperature([this](int sensor, int degrees) { _changed.Fire(sensor, degrees); });
    }

    int GetTemperatureDegreesCelsius(int sensor) override {
        return Refusable([&] { return _sensors.Temperature(sensor); });
    }

    tavos::core::Event2<int, int>& OnTemperatureChange() override { return _changed; }

private:
    Sensors& _sensors;
    tavos::core::Event2<int, int> _changed;
};

}  // namespace dome
