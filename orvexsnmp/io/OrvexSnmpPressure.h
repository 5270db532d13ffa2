#pragma once

#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IAlarmV3Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// NTCIP 1205 alarmStatus: bit 4, the pressure alarm, is alarm input 0 of the bank "BNK2". Agent's thread only.
class OrvexSnmpPressure final : public OrvexSnmpBaseProvider<OrvexSnmpPressure> {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpPressure(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpPressure() override = default;

    /// Returns 0, or -1 if the call failed; then `state` stays unchanged.
    int GetAlarmState(bool& state) const;

    // The handlers of its objects.
#include "objects/OrvexSnmpPressure.inc"

private:
    std::unique_ptr<tavos::interfaces::IAlarmV3Provider> _client;
};
