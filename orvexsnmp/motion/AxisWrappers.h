#pragma once

#include "core/PlatformCall.h"
#include "position/PositionCommand.h"
#include "tavos/core/Logger.h"

/// The wrappers that pan and tilt share. Client is the axis's service interface. They return 0, or -1 if the call
/// failed or the speed was refused.

template <class Client>
int SetAxisVelocity(const tavos::core::Logger& logger, Client& client, int speed) {
    constexpr auto kName = "SetRelativeVelocity";
    logger.Trace("%s: Enter.", kName);
    double tavosSpeed;
    if (!ScaleSpeed(logger, kName, speed, tavosSpeed)) return -1;
    return GuardedCall(logger, kName, "Exception while SetRelativeVelocity", [&] {
        client.SetRelativeVelocity(tavosSpeed, kTimeLimit);
        logger.Information("%s: SetRelativeVelocity(%f,300)", kName, tavosSpeed);
    });
}

template <class Client>
int GetAxisVelocity(const tavos::core::Logger& logger, Client& client, double& velocity) {
    return PlatformRead(
        logger, "GetRelativeVelocity", "Exception while GetRelativeVelocity", velocity,
        [&] { return client.GetRelativeVelocity(); },
        [&](double current) { logger.Information("GetRelativeVelocity: velocity=%f", current); });
}
