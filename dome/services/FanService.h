#pragma once

#include "dome/model/Sensors.h"
#include "tavos/interfaces/IFanV2Provider.h"

namespace dome {

class FanService final : public tavos::interfaces::IFanV2Provider {
public:
    explicit FanService(const Sensors& sensors) : _sensors(sensors) {}

    bool IsRunning() override { return _sensors.IsFanRunning(); }

private:
    const Sensors& _sensors;
};

}  // namespace dome
