#include "motion/OrvexSnmpTilt.h"

#include "core/PlatformCall.h"
#include "motion/AxisWrappers.h"
#include "position/PositionCommand.h"

namespace {

constexpr auto kHandler = "handle_positionTilt";

// The words in which pan and tilt differ: the formats of CommitAxisCommand's lines.
struct Lines {
    static constexpr char kStop[] = "%s: stop tilt (%d)";
    static constexpr char kStopSpeed[] = "%s: stop tilt speed not zero(%d)";
    static constexpr char kDelta[] = "%s: delta tilt (%d)";
    static constexpr char kDeltaForward[] = "%s: tilt upward,speed=%d,new tilt=%d";
    static constexpr char kDeltaBackward[] = "%s: tilt downward,speed=%d,new tilt=%d";
    static constexpr char kAbsolute[] = "%s: absolute tilt (%d)";
    static constexpr char kOutsideRange[] = "%s: absolute tilt position=%d outside range";
    static constexpr char kContinuous[] = "%s: continuous tilt=%d, speed=%d";
    static constexpr char kUnknownMode[] = "%s: unknown tilt mode (%d)";
    static int UnknownMode(const PositionCommand& command) { return command.mode; }
};

// Fixed: docs/contract.md, tilt-second-quadrant.
int SignedAngle(int position) {
    if (position <= 8999) return position;
    if (position <= 17999) return position - 9000;
    if (position <= 26999) return 18000 - position;
    return position - 36000;
}

}  // namespace

OrvexSnmpTilt::OrvexSnmpTilt(tavos::msgbus::MsgBus& bus)
    : _client(tavos::interfaces::IAxisProvider::CreateClient(&bus, "tilt")) {
    _logger->Trace("%s: Enter", "OrvexSnmpTilt");
    _logger->Trace("%s: Done.", "OrvexSnmpTilt");
}

bool OrvexSnmpTilt::MapPosition(const char* name, int position, int& tavosPosition) const {
    if (position > static_cast<int>(kMaxAngle)) {
        _logger->Error("%s: position=%d outside NTCIP range of 0 - 35999", name, position);
        return false;
    }
    tavosPosition = SignedAngle(position) * kPlatformUnits;
    _logger->Information("%s: NTCIP position %d, tavosposition %d", name, position, tavosPosition);
    return true;
}

int OrvexSnmpTilt::SetPosition(int position) const {
    constexpr auto kName = "SetPosition";
    _logger->Trace("%s: Enter.", kName);
    int target;
    if (!MapPosition(kName, position, target)) return -1;
    return GuardedCall(*_logger, kName, "Exception while SetPosition", [&] {
        _client->SetPosition(target, kTimeLimit);
        _logger->Information("%s: SetPosition=(%d,300)", kName, target);
    });
}

int OrvexSnmpTilt::SetPositionAtSpeed(int position, int speed) const {
    constexpr auto kName = "SetPositionAtSpeed";
    _logger->Trace("%s: Enter.", kName);
    double tavosSpeed;
    int target;
    if (!ScaleSpeed(*_logger, kName, speed, tavosSpeed)) return -1;
    if (!MapPosition(kName, position, target)) return -1;
    return GuardedCall(*_logger, kName, "Exception while SetPositionAtSpeed", [&] {
        _client->SetPositionAtSpeed(target, tavosSpeed, kTimeLimit);
        // Fixed: docs/contract.md, axis-success-line.
        _logger->Information("%s: SetPositionAtSpeed(%d,%f, 300)", kName, position, tavosSpeed);
    });
}

int OrvexSnmpTilt::GetPosition(unsigned int& position) const {
    return PlatformRead(
        *_logger, "GetPosition", "Exception while GetPosition", position, [this] { return _client->GetPosition(); },
        [this](int current) { _logger->Information("GetPosition: currentTilt=%d", current); });
}

int OrvexSnmpTilt::SetRelativeVelocity(int speed) const {
    return SetAxisVelocity(*_logger, *_client, speed);
}

int OrvexSnmpTilt::GetRelativeVelocity(double& velocity) const {
    return GetAxisVelocity(*_logger, *_client, velocity);
}

int OrvexSnmpTilt::GetMinPosition(int& limit) const {
    return PlatformRead(
        *_logger, "GetMinPosition", "Exception while GetMinPosition", limit,
        [this] { return _client->GetMinPosition(); },
        [this](int current) { _logger->Information("GetMinPosition: topLimit=%d", current); });
}

int OrvexSnmpTilt::GetMaxPosition(int& limit) const {
    return PlatformRead(
        *_logger, "GetMaxPosition", "Exception while GetMaxPosition", limit,
        [this] { return _client->GetMaxPosition(); },
        [this](int current) { _logger->Information("GetMaxPosition: bottomLimit=%d", current); });
}

int OrvexSnmpTilt::handle_positionTilt(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                       netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& tilt = *GetInstance();
    return HandlePosition(
        kHandler, tilt.GetLogger(), tilt._lastTilt, info, requests, [](const PositionCommand&) {},
        [&](const PositionCommand& command) { return CommitAxisCommand<Lines>(tilt, kHandler, command); });
}
