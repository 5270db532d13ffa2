#include "motion/OrvexSnmpPan.h"

#include "core/PlatformCall.h"
#include "motion/AxisWrappers.h"
#include "position/PositionCommand.h"

namespace {

constexpr std::int32_t kNoNorth = 65535;  // NTCIP 1205: the offset is unknown

// Stored and answered; the pan does not use it.
std::int32_t s_trueNorthOffset = kNoNorth;

constexpr auto kHandler = "handle_positionPan";

// The lines in which pan and tilt differ. See CommitAxisCommand.
struct Lines {
    const tavos::core::Logger& logger;

    void Stop(int mode) const { logger.Information("%s: stop pan (%d)", kHandler, mode); }
    void StopSpeed(int speed) const { logger.Error("%s: stop pan speed not zero(%d)", kHandler, speed); }
    void Delta(int mode) const { logger.Information("%s: delta pan (%d)", kHandler, mode); }
    void DeltaForward(int speed, int target) const {
        logger.Information("%s: pan positive clockwise,speed=%d,new pan=%d", kHandler, speed, target);
    }
    void DeltaBackward(int speed, int target) const {
        logger.Information("%s: pan negative counter-clockwise,speed=%d,new pan=%d", kHandler, speed, target);
    }
    void Absolute(int mode) const { logger.Information("%s: absolute pan (%d)", kHandler, mode); }
    void OutsideRange(int position) const {
        logger.Error("%s: absolute pan position=%d outside range", kHandler, position);
    }
    void Continuous(int mode, int speed) const {
        logger.Information("%s: continuous pan=%d, speed=%d", kHandler, mode, speed);
    }
    // Fixed: docs/contract.md, unknown-mode-line.
    void UnknownMode(const PositionCommand& command) const {
        logger.Error("%s: unknown pan mode (%d)", kHandler, command.speed);
    }
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
        [&](const PositionCommand& command) { return CommitAxisCommand(pan, Lines{pan.GetLogger()}, command); });
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
