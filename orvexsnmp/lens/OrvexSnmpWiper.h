#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IFanV2Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The NTCIP 1205 camera feature objects, such as the wiper. They store and answer the managers' values and drive
/// nothing on the camera. Agent's thread only.
class OrvexSnmpWiper final : public OrvexSnmpBaseProvider<OrvexSnmpWiper> {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpWiper(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpWiper() override = default;

    // The handlers of its objects.
#include "objects/OrvexSnmpWiper.inc"

private:
    // Fixed: docs/contract.md, unused-clients.
    std::unique_ptr<tavos::interfaces::IFanV2Provider> _client;
    std::array<std::uint8_t, 2> _lastControl{};
    std::uint8_t _equipped = 0;
};
