#pragma once

#include <cstdint>
#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IAxisProvider.h"
#include "tavos/msgbus/MsgBus.h"

/// The NTCIP 1205 tilt objects, on the platform's axis "tilt". Agent's thread only.
/// NTCIP positions: 0 to 35999, hundredths of a degree on a circle; the platform's are signed angles.
class OrvexSnmpTilt final : public OrvexSnmpBaseProvider<OrvexSnmpTilt> {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpTilt(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpTilt() override = default;

    /// The four octets of the last command, as received.
    int GetLastTilt() const { return static_cast<int>(_lastTilt); }
    void SetLastTilt(int last) { _lastTilt = static_cast<std::uint32_t>(last); }

    // The service's operations. Return 0, or -1 if the call failed or was refused; set outputs on success only.
    int SetPosition(int position) const;
    int SetPositionAtSpeed(int position, int speed) const;
    int GetPosition(unsigned int& position) const;  ///< platform units, the 32 bits of a signed angle
    int SetRelativeVelocity(int speed) const;
    // Fixed: docs/contract.md, unused-operations.
    int GetRelativeVelocity(double& velocity) const;
    // Fixed: docs/contract.md, limits-of-0.
    int GetMinPosition(int& limit) const;
    int GetMaxPosition(int& limit) const;

    // The handlers of its objects.
#include "objects/OrvexSnmpTilt.inc"

private:
    /// The platform position of an NTCIP position, by quadrant. Returns false, with an Error line, above 35999. Does
    /// not check negative positions.
    bool MapPosition(const char* name, int position, int& tavosPosition) const;

    std::unique_ptr<tavos::interfaces::IAxisProvider> _client;
    std::uint32_t _lastTilt = 0;
};
