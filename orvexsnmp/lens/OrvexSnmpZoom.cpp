#include "lens/OrvexSnmpZoom.h"

#include <algorithm>

#include "core/PlatformCall.h"
#include "position/PositionCommand.h"
#include "position/ScaleValues.h"

namespace {

constexpr auto kHandler = "handle_positionZoomLens";
constexpr std::uint32_t kMinMagnification = 1000;  // 1.0x
constexpr std::uint32_t kMaxZoom = 65535;

}  // namespace

OrvexSnmpZoom::OrvexSnmpZoom(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpZoom");
    _client.reset(tavos::interfaces::IZoomProvider::CreateClient(&bus));
    _logger->Trace("%s: Done.", "OrvexSnmpZoom");
}

int OrvexSnmpZoom::SetMagnificationThousandthsX(unsigned int magnification) const {
    constexpr auto kName = "SetMagnificationThousandthsX";
    return PlatformCall(*_logger, kName, "Exception while SetMagnificationThousandthsX", [&] {
        _client->SetMagnificationThousandthsX(magnification, kTimeLimit);
        _logger->Information("%s: SetMagnificationThousandthsX(%d,300)", kName, static_cast<int>(magnification));
    });
}

int OrvexSnmpZoom::SetMaxMagnificationThousandthsX(unsigned int magnification) const {
    constexpr auto kName = "SetMaxMagnificationThousandthsX";
    return PlatformCall(*_logger, kName, "Exception while SetMaxMagnificationThousandthsX", [&] {
        _client->SetMaxMagnificationThousandthsX(magnification);
        _logger->Information("%s: SetMaxMagnificationThousandthsX(%d)", kName, static_cast<int>(magnification));
    });
}

int OrvexSnmpZoom::GetMagnificationThousandthsX(unsigned int& magnification) const {
    return PlatformRead(
        *_logger, "GetMagnificationThousandthsX", "Exception while GetMagnificationThousandthsX", magnification,
        [this] { return _client->GetMagnificationThousandthsX(); },
        [this](int current) {
            _logger->Information("GetMagnificationThousandthsX: GetMagnificationThousandthsX(%d)", current);
        });
}

int OrvexSnmpZoom::GetMaxMagnificationThousandthsX(unsigned int& magnification) const {
    return PlatformRead(
        *_logger, "GetMaxMagnificationThousandthsX", "Exception while GetMaxMagnificationThousandthsX", magnification,
        [this] { return _client->GetMaxMagnificationThousandthsX(); },
        [this](int current) {
            _logger->Information("GetMaxMagnificationThousandthsX: GetMaxMagnificationThousandthsX(%d)", current);
        });
}

int OrvexSnmpZoom::GetMaxDigitalMagnificationThousandthsX(unsigned int& magnification) const {
    return PlatformRead(
        *_logger, "GetMaxDigitalMagnificationThousandthsX", "Exception while GetMaxDigitalMagnificationThousandthsX",
        magnification, [this] { return _client->GetMaxDigitalMagnificationThousandthsX(); },
        [this](int current) {
            _logger->Information("GetMaxDigitalMagnificationThousandthsX: GetMaxDigitalMagnificationThousandthsX(%d)",
                                 current);
        });
}

int OrvexSnmpZoom::GetMaxOpticalMagnificationThousandthsX(unsigned int& magnification) const {
    return PlatformRead(
        *_logger, "GetMaxOpticalMagnificationThousandthsX", "Exception while GetMaxOpticalMagnificationThousandthsX",
        magnification, [this] { return _client->GetMaxOpticalMagnificationThousandthsX(); },
        [this](int current) {
            _logger->Information("GetMaxOpticalMagnificationThousandthsX: GetMaxOpticalMagnificationThousandthsX(%d)",
                                 current);
        });
}

int OrvexSnmpZoom::ZoomRelative(int direction) const {
    constexpr auto kName = "ZoomRelative";
    return PlatformCall(*_logger, kName, "Exception while ZoomRelative", [&] {
        _client->ZoomRelative(direction, kTimeLimit);
        _logger->Information("%s: ZoomRelative(%d,300)", kName, direction);
    });
}

int OrvexSnmpZoom::ScaleValues(std::uint32_t value, std::uint32_t inMin, std::uint32_t inMax, std::uint32_t outMin,
                               std::uint32_t outMax) const {
    return ScaleLinearly(value, inMin, inMax, outMin, outMax);
}

void OrvexSnmpZoom::CommitDelta(const PositionCommand& command) const {
    _logger->Information("%s: delta zoom (%d)", kHandler, command.mode);
    // Fixed: docs/contract.md, zoom-unread-is-0.
    unsigned int max = 0;
    unsigned int current = 0;
    GetMaxMagnificationThousandthsX(max);
    GetMagnificationThousandthsX(current);

    // Fixed: docs/contract.md, zoom-delta-sign.
    const int step = static_cast<std::int16_t>(command.speed < 0 ? -command.position : command.position);
    const std::int64_t ntcipCurrent = ScaleValues(current, kMinMagnification, max, 0, kMaxZoom);
    const auto target =
        static_cast<int>(std::clamp<std::int64_t>(ntcipCurrent + step, 0, static_cast<std::int64_t>(kMaxZoom)));
    const int requested = ScaleValues(static_cast<std::uint32_t>(target), 0, kMaxZoom, kMinMagnification, max);
    // Fixed: docs/contract.md, zoom-lines.
    _logger->Information("%s: NTCIP zoom cur=%d,req=%d,delta=%f percent, tavos cur=%d,req=%d,max=%d", kHandler, target,
                         command.position, command.position / 65535.0, static_cast<int>(current), requested,
                         static_cast<int>(max));
    SetMagnificationThousandthsX(static_cast<unsigned int>(requested));
}

void OrvexSnmpZoom::CommitAbsolute(const PositionCommand& command) const {
    _logger->Information("%s: absolute zoom (%d)", kHandler, command.mode);
    unsigned int max = 0;
    GetMaxMagnificationThousandthsX(max);
    const int requested = ScaleValues(command.position, 0, kMaxZoom, kMinMagnification, max);
    _logger->Information("%s: NTCIP zoom=%d,%f percent, zoom thousandsths=%d,max=%d", kHandler, command.position,
                         command.position / 65535.0, requested, static_cast<int>(max));
    SetMagnificationThousandthsX(static_cast<unsigned int>(requested));
}

int OrvexSnmpZoom::Commit(const PositionCommand& command) const {
    switch (command.mode) {
        case PositionCommand::kStop:
            return StopCommand(
                command, [this](int mode) { _logger->Information("%s: stop zoom (%d)", kHandler, mode); },
                [this](int speed) { _logger->Error("%s: stop zoom speed not zero(%d)", kHandler, speed); },
                [this] { ZoomRelative(0); });
        case PositionCommand::kDelta:
            CommitDelta(command);
            return SNMP_ERR_NOERROR;
        case PositionCommand::kAbsolute:
            CommitAbsolute(command);
            return SNMP_ERR_NOERROR;
        case PositionCommand::kContinuous: {
            if (!SpeedInRange(*_logger, kHandler, command.speed)) return kRefusedAtOnce;
            // Fixed: docs/contract.md, zoom-continuous-0.
            const bool out = command.speed < 0;
            ZoomRelative(out ? -1 : 1);
            // Fixed: docs/contract.md, continuous-line.
            _logger->Information("%s: continuous zoom=%d, direction=%s", kHandler, command.mode,
                                 out ? "ZoomOut" : "ZoomIn");
            return SNMP_ERR_NOERROR;
        }
        default:
            // Fixed: docs/contract.md, unknown-mode-line.
            _logger->Error("%s: unknown zoom mode (%d)", kHandler, command.speed);
            return SNMP_ERR_GENERR;
    }
}

int OrvexSnmpZoom::handle_positionZoomLens(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                           netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& zoom = *GetInstance();
    return HandlePosition(
        kHandler, zoom.GetLogger(), zoom._lastZoom, info, requests, [](const PositionCommand&) {},
        [&](const PositionCommand& command) { return zoom.Commit(command); });
}
