#include "motion/OrvexSnmpPan.h"

#include "core/PlatformCall.h"
#include "motion/AxisWrappers.h"
#include "position/PositionCommand.h"

namespace {

constexpr std::int32_t kNoNorth = 65535;  // NTCIP 1205: the offset is unknown

// Stored and answered; the pan does not use it.
std::int32_t s_trueNorthOffset = kNoNorth;

constexpr auto kHandler = "handle_positionPan";

// The words in which pan and tilt differ: the formats of CommitAxisCommand's lines.
struct Lines {
    static constexpr char kStop[] = "%s: stop pan (%d)";
    static constexpr char kStopSpeed[] = "%s: stop pan speed not zero(%d)";
    static constexpr char kDelta[] = "%s: delta pan (%d)";
    static constexpr char kDeltaForward[] = "%s: pan positive clockwise,speed=%d,new pan=%d";
    static constexpr char kDeltaBackward[] = "%s: pan negative counter-clockwise,speed=%d,new pan=%d";
    static constexpr char kAbsolute[] = "%s: absolute pan (%d)";
    static constexpr char kOutsideRange[] = "%s: absolute pan position=%d outside range";
    static constexpr char kContinuous[] = "%s: continuous pan=%d, speed=%d";
    // Fixed: docs/contract.md, unknown-mode-line.
    static constexpr char kUnknownMode[] = "%s: unknown pan mode (%d)";
    static int UnknownMode(const PositionCommand& command) { return command.speed; }
};

// Modulo 2^32, like the steps of a delta: a service's position may be any 32 bits.
int PlatformPosition(int position) {
    return static_cast<int>(static_cast<unsigned>(position) * kPlatformUnits);
}

}  // namespace

OrvexSnmpPan::OrvexSnmpPan(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpPan");
    _client.reset(tavos::interfaces::IPanProvider::CreateClient(&bus));
    _logger->Trace("%s: Done.", "OrvexSnmpPan");
}

// Fixed: docs/contract.md, pan-unchecked.
int OrvexSnmpPan::SetPosition(int position) const {
    constexpr auto kName = "SetPosition";
    return PlatformCall(*_logger, kName, "Exception while SetPosition", [&] {
        const int target = PlatformPosition(position);
        _client->SetPosition(target, kTimeLimit);
        _logger->Information("%s: SetPosition=(%d,300)", kName, target);
    });
}

int OrvexSnmpPan::SetPositionAtSpeed(int position, int speed) const {
    constexpr auto kName = "SetPositionAtSpeed";
    _logger->Trace("%s: Enter.", kName);
    double tavosSpeed;
    if (!ScaleSpeed(*_logger, kName, speed, tavosSpeed)) return -1;
    return GuardedCall(*_logger, kName, "Exception while SetPositionAtSpeed", [&] {
        const int target = PlatformPosition(position);
        _client->SetPositionAtSpeed(target, tavosSpeed, kTimeLimit);
        // Fixed: docs/contract.md, axis-success-line.
        _logger->Information("%s: SetPositionAtSpeed(%d,%f,300)", kName, target, tavosSpeed);
    });
}

int OrvexSnmpPan::GetPosition(unsigned int& position) const {
    return PlatformRead(
        *_logger, "GetPosition", "Exception while GetPosition", position, [this] { return _client->GetPosition(); },
        [this](int current) { _logger->Information("GetPosition: currentPosition=%d", current); });
}

int OrvexSnmpPan::GetMinPosition(unsigned int& limit) const {
    return PlatformRead(
        *_logger, "GetMinPosition", "Exception while GetMinPosition", limit,
        [this] { return _client->GetMinPosition(); },
        [this](int current) { _logger->Information("GetMinPosition: leftLimit=%d", current); });
}

int OrvexSnmpPan::GetMaxPosition(unsigned int& limit) const {
    return PlatformRead(
        *_logger, "GetMaxPosition", "Exception while GetMaxPosition", limit,
        [this] { return _client->GetMaxPosition(); },
        [this](int current) { _logger->Information("GetMaxPosition: rightLimit=%d", current); });
}

int OrvexSnmpPan::SetRelativeVelocity(int speed) const {
    return SetAxisVelocity(*_logger, *_client, speed);
}

int OrvexSnmpPan::GetRelativeVelocity(double& velocity) const {
    return GetAxisVelocity(*_logger, *_client, velocity);
}

int OrvexSnmpPan::handle_positionPan(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                     netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& pan = *GetInstance();
    return HandlePosition(
        kHandler, pan.GetLogger(), pan._lastPan, info, requests, [](const PositionCommand&) {},
        [&](const PositionCommand& command) { return CommitAxisCommand<Lines>(pan, kHandler, command); });
}

int OrvexSnmpPan::handle_rangeTrueNorthOffset(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                              netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_rangeTrueNorthOffset";
    const auto& logger = GetInstance()->GetLogger();
    auto* variable = requests->requestvb;
    // Fixed: docs/contract.md, true-north-lines.
    logger.Debug("%s: Enter.", kName);
    int result = SNMP_ERR_NOERROR;
    switch (info->mode) {
        case MODE_SET_RESERVE1:
            if (variable->type != ASN_INTEGER) {
                result = SNMP_ERR_WRONGTYPE;
                netsnmp_set_request_error(info, requests, result);
            }
            break;
        case MODE_SET_RESERVE2:
            if (const auto value = ReadInteger(*variable); value != 0 && value != kNoNorth) {
                logger.Error("%s: true north offset can only be 0 or 65535", kName);
                // Fixed: docs/contract.md, true-north-two-errors.
                netsnmp_set_request_error(info, requests, SNMP_ERR_WRONGVALUE);
                result = SNMP_ERR_GENERR;
            }
            break;
        case MODE_SET_ACTION:
            // Fixed: docs/contract.md, true-north-not-undone.
            s_trueNorthOffset = ReadInteger(*variable);
            break;
        case MODE_SET_COMMIT:
        case MODE_SET_FREE:
        case MODE_SET_UNDO:
        case MODE_GETNEXT:
            break;
        case MODE_GET:
            AnswerInteger(requests, s_trueNorthOffset);
            break;
        default:
            result = UnknownMode(logger, kName, info);
            netsnmp_set_request_error(info, requests, result);
    }
    logger.Debug("%s: Done.", kName);
    return result;
}
