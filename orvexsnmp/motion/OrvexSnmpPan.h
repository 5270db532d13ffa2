#pragma once

#include <cstdint>
#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IPanProvider.h"
#include "tavos/msgbus/MsgBus.h"

/// The NTCIP 1205 pan objects, on the platform's pan service. Agent's thread only.
/// NTCIP positions: 0 to 35999, hundredths of a degree; NTCIP speeds: -127 to 127.
class OrvexSnmpPan final : public OrvexSnmpBaseProvider<OrvexSnmpPan> {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpPan(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpPan() override = default;

    /// The four octets of the last command, as received.
    int GetLastPan() const { return static_cast<int>(_lastPan); }
    void SetLastPan(int last) { _lastPan = static_cast<std::uint32_t>(last); }

    // The service's operations. Return 0, or -1 if the call failed or was refused; set outputs on success only.
    int SetPosition(int position) const;
    int SetPositionAtSpeed(int position, int speed) const;
    int GetPosition(unsigned int& position) const;  ///< platform units
    // Fixed: docs/contract.md, limits-of-0.
    int GetMinPosition(unsigned int& limit) const;
    int GetMaxPosition(unsigned int& limit) const;
    int SetRelativeVelocity(int speed) const;
    // Fixed: docs/contract.md, unused-operations.
    int GetRelativeVelocity(double& velocity) const;

    // The handlers of its objects.
#include "objects/OrvexSnmpPan.inc"

private:
    std::unique_ptr<tavos::interfaces::IPanProvider> _client;
    std::uint32_t _lastPan = 0;
};
