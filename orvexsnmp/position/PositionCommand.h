#pragma once

#include <array>
#include <cstdint>

#include "core/HandlerSteps.h"
#include "core/NetSnmp.h"
#include "core/PlatformCall.h"
#include "tavos/core/Logger.h"

/// The four-octet command of NTCIP 1205's five position objects: mode, signed speed, big-endian position.
struct PositionCommand {
    enum Mode : std::uint8_t { kStop = 0, kDelta = 1, kAbsolute = 2, kContinuous = 3 };

    explicit PositionCommand(const std::array<std::uint8_t, 4>& received);

    std::array<std::uint8_t, 4> octets;  ///< as received
    std::uint8_t mode;                   ///< 4 to 255 are invalid
    int speed;                           ///< -128 to 127; -128 is out of range
    std::uint16_t position;              ///< the axis's own unit
};

/// The time limit of every timed operation, in the platform's unit.
constexpr int kTimeLimit = 300;

/// NTCIP pan and tilt positions: 36000 a turn.
constexpr unsigned kTurn = 36000;
constexpr unsigned kMaxAngle = kTurn - 1;

/// Platform units in one NTCIP pan or tilt unit.
constexpr int kPlatformUnits = 10;

/// Returns false, with an Information line, for the speed -128.
bool SpeedInRange(const tavos::core::Logger& logger, const char* name, int speed);

/// Converts an NTCIP speed to a fraction of the axis's max speed. Returns false for a speed out of range; then
/// `tavosSpeed` stays unchanged.
bool ScaleSpeed(const tavos::core::Logger& logger, const char* name, int speed, double& tavosSpeed);

/// The stop command of every axis. `line` logs the mode. Speed 0 calls `stop`. Another speed is logged by `speedLine`
/// and refused with SNMP_ERR_GENERR.
template <class Line, class SpeedLine, class Stop>
int StopCommand(const PositionCommand& command, Line&& line, SpeedLine&& speedLine, Stop&& stop) {
    line(command.mode);
    if (command.speed != 0) {
        speedLine(command.speed);
        return SNMP_ERR_GENERR;
    }
    stop();
    return SNMP_ERR_NOERROR;
}

/// A commit returns this value instead of an SNMP error to end the handler at once with SNMP_ERR_GENERR, without an
/// answer and without the exit trace.
constexpr int kRefusedAtOnce = -1;

/// The handler of a position object. Only the commit phase checks and acts. GET answers the last committed command,
/// valid or not. Each request calls `before` with the command, whatever its mode. `commit` acts on the command and
/// returns an SNMP error or kRefusedAtOnce. `last` has the four octets as received.
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

/// The target of a delta, in NTCIP units, from a platform position and the command's step. Uses unsigned 32-bit
/// arithmetic. Subtracts 36000 once if the target is above 35999: a step backwards across 0 stays below zero.
template <class Lines>
int DeltaTarget(const tavos::core::Logger& logger, const char* name, const PositionCommand& command, unsigned current) {
    const unsigned base = current / kPlatformUnits;
    // Fixed: docs/contract.md, tilt-delta-unmapped.
    const bool forward = command.speed >= 0;
    const unsigned target = forward ? base + command.position : base - command.position;
    forward ? logger.Information(Lines::kDeltaForward, name, command.speed, static_cast<int>(target))
            : logger.Information(Lines::kDeltaBackward, name, command.speed, static_cast<int>(target));
    // Fixed: docs/contract.md, delta-across-zero.
    return static_cast<int>(target > kMaxAngle ? target - kTurn : target);
}

/// Commits a pan or tilt command with the axis's wrappers; their failures do not fail the SET. Returns an SNMP error.
/// `Lines` has the formats of the log lines that differ between the two axes, and the number that each prints for an
/// unknown mode.
template <class Lines, class Axis>
int CommitAxisCommand(const Axis& axis, const char* name, const PositionCommand& command) {
    const auto& logger = axis.GetLogger();
    // Fixed: docs/contract.md, failed-service-no-error.
    switch (command.mode) {
        case PositionCommand::kStop:
            return StopCommand(
                command, [&](int mode) { logger.Information(Lines::kStop, name, mode); },
                [&](int speed) { logger.Error(Lines::kStopSpeed, name, speed); }, [&] { axis.SetRelativeVelocity(0); });
        case PositionCommand::kDelta: {
            logger.Information(Lines::kDelta, name, command.mode);
            unsigned current = 0;
            // Fixed: docs/contract.md, delta-without-position.
            if (axis.GetPosition(current) != 0) return SNMP_ERR_NOERROR;
            // Fixed: docs/contract.md, delta-speed-sign.
            axis.SetPositionAtSpeed(DeltaTarget<Lines>(logger, name, command, current), command.speed);
            return SNMP_ERR_NOERROR;
        }
        case PositionCommand::kAbsolute:
            logger.Information(Lines::kAbsolute, name, command.mode);
            if (command.position > kMaxAngle) {
                logger.Error(Lines::kOutsideRange, name, command.position);
                return SNMP_ERR_GENERR;
            }
            axis.SetPositionAtSpeed(command.position, command.speed);
            return SNMP_ERR_NOERROR;
        case PositionCommand::kContinuous:
            // Fixed: docs/contract.md, continuous-line.
            logger.Information(Lines::kContinuous, name, command.mode, command.speed);
            axis.SetRelativeVelocity(command.speed);
            return SNMP_ERR_NOERROR;
        default:
            logger.Error(Lines::kUnknownMode, name, Lines::UnknownMode(command));
            return SNMP_ERR_GENERR;
    }
}
