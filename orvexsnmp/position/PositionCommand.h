#pragma once

#include <array>
#include <cstdint>

#include "core/HandlerSteps.h"
#include "core/NetSnmp.h"
#include "core/PlatformCall.h"
#include "tavos/core/Logger.h"

/// The four-octet command of the five position objects of NTCIP 1205: mode, signed speed,
/// big-endian position.
struct PositionCommand {
    enum Mode : std::uint8_t { kStop = 0, kDelta = 1, kAbsolute = 2, kContinuous = 3 };

    explicit PositionCommand(const std::array<std::uint8_t, 4>& received);

    std::array<std::uint8_t, 4> octets;  ///< as received
    std::uint8_t mode;                   ///< 4 to 255 are invalid
    int speed;                           ///< -128 to 127; -128 is out of the command's range
    std::uint16_t position;              ///< the axis's own unit
};

/// The time limit of every timed operation, in the platform's unit.
constexpr int kTimeLimit = 300;

/// NTCIP pan and tilt positions: 36000 a turn.
constexpr unsigned kTurn = 36000;
constexpr unsigned kMaxAngle = kTurn - 1;

/// Platform units in one NTCIP pan or tilt unit.
constexpr int kPlatformUnits = 10;

/// False, with an Information line, for the speed -128.
bool SpeedInRange(const tavos::core::Logger& logger, const char* name, int speed);

/// The speed rule of the pan and tilt wrappers: converts the NTCIP speed to a fraction of the axis's max. speed.
/// Returns false for a speed out of range; `tavosSpeed` then stays unchanged.
bool ScaleSpeed(const tavos::core::Logger& logger, const char* name, int speed, double& tavosSpeed);

/// The stop of every axis: a speed other than 0 is refused with the Error line `speedLine` and SNMP_ERR_GENERR,
/// otherwise `stop` is called. Both lines take the handler's name and a number, `line` the mode.
template <class Stop>
int StopCommand(const tavos::core::Logger& logger, const char* name, const PositionCommand& command, const char* line,
                const char* speedLine, Stop&& stop) {
    logger.Information(line, name, command.mode);
    if (command.speed != 0) {
        logger.Error(speedLine, name, command.speed);
        return SNMP_ERR_GENERR;
    }
    stop();
    return SNMP_ERR_NOERROR;
}

/// What a commit returns, beside SNMP errors, to end the handler with SNMP_ERR_GENERR at once: no answer is set and
/// no exit is traced.
constexpr int kRefusedAtOnce = -1;

/// The handler of a motion object. Everything happens in the commit phase; GET answers the last command received
/// there, valid or not. `before` is called with the command on every request, whatever its mode; `commit` acts on it
/// and returns an SNMP error or kRefusedAtOnce. `last` holds the four octets as they arrived.
/// Fixed: docs/contract.md, checked-in-commit.
template <class Before, class Commit>
int HandlePosition(const char* name, const tavos::core::Logger& logger, std::uint32_t& last,
                   const netsnmp_agent_request_info* info, netsnmp_request_info* requests, Before&& before,
                   Commit&& commit) {
    logger.Trace("%s: Enter.", name);
    LogReceivedOid(logger, tavos::core::kDebug, name, requests);
    const PositionCommand command(ReadOctets<4>(*requests->requestvb));
    before(command);

    int result = SNMP_ERR_NOERROR;
    if (info->mode == MODE_SET_COMMIT) {
        // Fixed: docs/contract.md, rejected-command-stored.
        std::memcpy(&last, command.octets.data(), sizeof last);
        result = commit(command);
        if (result == kRefusedAtOnce) return SNMP_ERR_GENERR;
        AnswerOctets(requests, command.octets);
    } else if (info->mode == MODE_GET) {
        AnswerOctets(requests, &last, sizeof last);
    }
    logger.Trace("%s: Done.", name);
    return result;
}

/// The words in which pan and tilt differ. Every line takes the handler's name first.
struct AxisLines {
    const char* name;           ///< the handler's
    const char* stop;           ///< mode
    const char* stopSpeed;      ///< speed
    const char* delta;          ///< mode
    const char* deltaForward;   ///< speed, target
    const char* deltaBackward;  ///< speed, target
    const char* absolute;       ///< mode
    const char* outsideRange;   ///< position
    const char* continuous;     ///< mode, speed
};

/// A delta's target, from a platform position and a step in NTCIP units, in unsigned 32-bit arithmetic. A turn is
/// taken off once, whatever is left: a step backwards across 0 stays below zero.
template <class Axis>
int DeltaTarget(const Axis& axis, const AxisLines& lines, const PositionCommand& command, unsigned current) {
    const unsigned base = current / kPlatformUnits;
    // Fixed: docs/contract.md, tilt-delta-unmapped.
    const bool forward = command.speed >= 0;
    const unsigned target = forward ? base + command.position : base - command.position;
    axis.GetLogger().Information(forward ? lines.deltaForward : lines.deltaBackward, lines.name, command.speed,
                                 static_cast<int>(target));
    // Fixed: docs/contract.md, delta-across-zero.
    return static_cast<int>(target > kMaxAngle ? target - kTurn : target);
}

/// What pan and tilt do with a command, through the axis's wrappers, whose failures do not fail the SET. Returns an
/// SNMP error. The modes 4 to 255 are left to the caller: false in `known`.
template <class Axis>
int CommitAxisCommand(const Axis& axis, const AxisLines& lines, const PositionCommand& command, bool& known) {
    const auto& logger = axis.GetLogger();
    known = true;
    // Fixed: docs/contract.md, failed-service-no-error.
    switch (command.mode) {
        case PositionCommand::kStop:
            return StopCommand(logger, lines.name, command, lines.stop, lines.stopSpeed,
                               [&] { axis.SetRelativeVelocity(0); });
        case PositionCommand::kDelta: {
            logger.Information(lines.delta, lines.name, command.mode);
            unsigned current = 0;
            // Fixed: docs/contract.md, delta-without-position.
            if (axis.GetPosition(current) != 0) return SNMP_ERR_NOERROR;
            // Fixed: docs/contract.md, delta-speed-sign.
            axis.SetPositionAtSpeed(DeltaTarget(axis, lines, command, current), command.speed);
            return SNMP_ERR_NOERROR;
        }
        case PositionCommand::kAbsolute:
            logger.Information(lines.absolute, lines.name, command.mode);
            if (command.position > kMaxAngle) {
                logger.Error(lines.outsideRange, lines.name, command.position);
                return SNMP_ERR_GENERR;
            }
            axis.SetPositionAtSpeed(command.position, command.speed);
            return SNMP_ERR_NOERROR;
        case PositionCommand::kContinuous:
            // Fixed: docs/contract.md, continuous-line.
            logger.Information(lines.continuous, lines.name, command.mode, command.speed);
            axis.SetRelativeVelocity(command.speed);
            return SNMP_ERR_NOERROR;
        default:
            known = false;
            return SNMP_ERR_GENERR;
    }
}
