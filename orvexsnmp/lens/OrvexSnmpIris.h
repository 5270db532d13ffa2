#pragma once

#include <cstdint>
#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IIrisProvider.h"
#include "tavos/msgbus/MsgBus.h"

struct PositionCommand;

/// The NTCIP 1205 iris objects, on the platform's iris service. Only stop and continuous commands move the iris.
/// Agent's thread only.
class OrvexSnmpIris final : public OrvexSnmpBaseProvider<OrvexSnmpIris> {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpIris(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpIris() override = default;

    /// The four octets of the last command, as received.
    int GetLastIris() const { return static_cast<int>(_lastIris); }
    // Fixed: docs/contract.md, unused-operations.
    void SetLastIris(int last) { _lastIris = static_cast<std::uint32_t>(last); }

    /// -1, 0 (stop) or +1. Returns 0, or -1 if the call failed.
    int MoveIris(int direction) const;

    // The handlers of its objects.
#include "objects/OrvexSnmpIris.inc"

private:
    void LogCommand(const PositionCommand& command) const;
    int Commit(const PositionCommand& command) const;
    int CommitContinuous(const PositionCommand& command) const;

    std::unique_ptr<tavos::interfaces::IIrisProvider> _client;
    std::uint32_t _lastIris = 0;
};
