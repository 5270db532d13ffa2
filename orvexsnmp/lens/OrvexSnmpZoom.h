#pragma once

#include <cstdint>
#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IZoomProvider.h"
#include "tavos/msgbus/MsgBus.h"

struct PositionCommand;

/// The NTCIP 1205 zoom objects, on the platform's zoom service. Agent's thread only.
/// NTCIP zoom positions: 0 (1.0x) to 65535 (the service's current maximum). Magnifications: thousandths.
class OrvexSnmpZoom final : public OrvexSnmpBaseProvider<OrvexSnmpZoom> {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpZoom(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpZoom() override = default;

    // The service's operations. Return 0, or -1 if the call failed; set outputs on success only.
    int SetMagnificationThousandthsX(unsigned int magnification) const;
    // Fixed: docs/contract.md, unused-operations.
    int SetMaxMagnificationThousandthsX(unsigned int magnification) const;
    int GetMagnificationThousandthsX(unsigned int& magnification) const;
    int GetMaxMagnificationThousandthsX(unsigned int& magnification) const;
    int GetMaxDigitalMagnificationThousandthsX(unsigned int& magnification) const;
    int GetMaxOpticalMagnificationThousandthsX(unsigned int& magnification) const;
    int ZoomRelative(int direction) const;  ///< +1 in, -1 out, 0 stop

    /// See ScaleLinearly.
    int ScaleValues(std::uint32_t value, std::uint32_t inMin, std::uint32_t inMax, std::uint32_t outMin,
                    std::uint32_t outMax) const;

    // The handlers of its objects.
#include "objects/OrvexSnmpZoom.inc"

private:
    int Commit(const PositionCommand& command) const;
    void CommitDelta(const PositionCommand& command) const;
    void CommitAbsolute(const PositionCommand& command) const;

    std::unique_ptr<tavos::interfaces::IZoomProvider> _client;
    std::uint32_t _lastZoom = 0;
};
