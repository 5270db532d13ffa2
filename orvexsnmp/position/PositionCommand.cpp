#include "position/PositionCommand.h"

#include "core/TextUtilities.h"

namespace {

constexpr double kMaxSpeed = 127.0;

std::uint16_t BigEndian(std::uint8_t high, std::uint8_t low) {
    return ushort_swap_endian(static_cast<std::uint16_t>(low << 8 | high));
}

}  // namespace

PositionCommand::PositionCommand(const std::array<std::uint8_t, 4>& received)
    : octets(received),
      mode(received[0]),
      speed(static_cast<std::int8_t>(received[1])),
      position(BigEndian(received[2], received[3])) {}

bool SpeedInRange(const tavos::core::Logger& logger, const char* name, int speed) {
    // Fixed: docs/contract.md, speed-minus-128.
    if (speed != -128) return true;
    logger.Information("%s: NTCIP speed %d outside range of -127 to +127", name, speed);
    return false;
}

bool ScaleSpeed(const tavos::core::Logger& logger, const char* name, int speed, double& tavosSpeed) {
    if (!SpeedInRange(logger, name, speed)) return false;
    tavosSpeed = speed / kMaxSpeed;
    logger.Information("%s: NTCIP speed %d, tavosSpeed %f", name, speed, tavosSpeed);
    return true;
}
