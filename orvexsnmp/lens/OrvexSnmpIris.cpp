#include "lens/OrvexSnmpIris.h"

#include "core/PlatformCall.h"
#include "position/PositionCommand.h"

namespace {

constexpr auto kHandler = "handle_positionIrisLens";

// Fixed: docs/contract.md, iris-lines.
unsigned LittleEndianPosition(const std::array<std::uint8_t, 4>& octets) {
    return static_cast<unsigned>(octets[3] << 8 | octets[2]);
}

}  // namespace

OrvexSnmpIris::OrvexSnmpIris(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpIris");
    _client.reset(tavos::interfaces::IIrisProvider::CreateClient(&bus));
    _logger->Trace("%s: Done.", "OrvexSnmpIris");
}

int OrvexSnmpIris::MoveIris(int direction) const {
    constexpr auto kName = "MoveIris";
    return PlatformCall(*_logger, kName, "Exception while MoveIris", [&] {
        _client->MoveIris(direction);
        _logger->Information("%s: moveIris=%d", kName, direction);
    });
}

void OrvexSnmpIris::LogCommand(const PositionCommand& command) const {
    std::array<std::uint8_t, 4> last;
    std::memcpy(last.data(), &_lastIris, last.size());
    _logger->Information("%s: iris=%02x %02x %04x,last=%02x %02x %04x", kHandler, command.mode, command.octets[1],
                         command.position, last[0], last[1], LittleEndianPosition(last));
    _logger->Information("%s: iris=%02x %02x %04x", kHandler, command.octets[0], static_cast<unsigned>(command.speed),
                         LittleEndianPosition(command.octets));
}

int OrvexSnmpIris::CommitContinuous(const PositionCommand& command) const {
    int result = SNMP_ERR_NOERROR;
    if (SpeedInRange(*_logger, kHandler, command.speed)) {
        // Fixed: docs/contract.md, iris-sign.
        MoveIris(command.speed < 0 ? 1 : -1);
    } else {
        result = SNMP_ERR_GENERR;
    }
    // Fixed: docs/contract.md, continuous-line.
    _logger->Information("%s: continuous iris=%d, speed=%d", kHandler, command.mode, command.speed);
    return result;
}

int OrvexSnmpIris::Commit(const PositionCommand& command) const {
    switch (command.mode) {
        case PositionCommand::kStop:
            return StopCommand(
                command, [this](int mode) { _logger->Information("%s: stop iris (%d)", kHandler, mode); },
                [this](int speed) { _logger->Error("%s: stop iris speed not zero(%d)", kHandler, speed); },
                [this] { MoveIris(0); });
        case PositionCommand::kDelta:
            // Fixed: docs/contract.md, iris-not-implemented.
            _logger->Error("%s: delta iris (%d), NOT IMPLEMENTED", kHandler, command.mode);
            return SNMP_ERR_NOERROR;
        case PositionCommand::kAbsolute:
            _logger->Error("%s: absolute iris (%d), NOT IMPLEMENTED", kHandler, command.mode);
            return SNMP_ERR_NOERROR;
        case PositionCommand::kContinuous:
            return CommitContinuous(command);
        default:
            // Fixed: docs/contract.md, unknown-mode-line.
            _logger->Error("%s: unknown iris mode (%d)", kHandler, command.speed);
            return SNMP_ERR_GENERR;
    }
}

int OrvexSnmpIris::handle_positionIrisLens(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                           netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& iris = *GetInstance();
    return HandlePosition(
        kHandler, iris.GetLogger(), iris._lastIris, info, requests,
        [&](const PositionCommand& command) { iris.LogCommand(command); },
        [&](const PositionCommand& command) { return iris.Commit(command); });
}
