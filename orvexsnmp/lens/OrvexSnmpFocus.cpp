#include "lens/OrvexSnmpFocus.h"

#include <algorithm>
#include <string>

#include "core/PlatformCall.h"
#include "position/PositionCommand.h"
#include "position/ScaleValues.h"

namespace {

constexpr auto kHandler = "handle_positionFocusLens";

constexpr double kMinPosition = 0.0;
constexpr double kMaxPosition = 100.0;

// The lens feature octets.
constexpr std::uint8_t kAutoIris = 0x80;
constexpr std::uint8_t kAutoFocus = 0x40;
constexpr std::uint8_t kEnable = 0x80;  // in the control's second octet

const std::string kModeKey = "[Imaging/Focus]Mode";
const std::string kModeAuto = "Auto";
const std::string kModeManual = "Manual";

double Percent(const PositionCommand& command) {
    return command.position * 100.0 / 65535.0;
}

}  // namespace

OrvexSnmpFocus::OrvexSnmpFocus(tavos::msgbus::MsgBus& bus)
    : _equipped(kAutoFocus), _settings(tavos::settings::TavosSettingsClient::kReadWrite) {
    _logger->Trace("%s: Enter", "OrvexSnmpFocus");
    _client.reset(tavos::interfaces::IFocusProvider::CreateClient(&bus));
    _clientV2.reset(tavos::interfaces::IFocusV2Provider::CreateClient(&bus));
    _irisClient.reset(tavos::interfaces::IIrisProvider::CreateClient(&bus));
    _logger->Trace("%s: Done.", "OrvexSnmpFocus");
}

OrvexSnmpFocus::~OrvexSnmpFocus() {
    _client.reset();
    _clientV2.reset();
    _irisClient.reset();
}

int OrvexSnmpFocus::SetAutoIrisEnabled(bool enabled) const {
    constexpr auto kName = "SetAutoIrisEnabled";
    return PlatformCall(*_logger, kName, "Exception while SetAutoIrisEnabled", [&] {
        _irisClient->SetAutoIris(enabled);
        _logger->Information("%s: SetAutoIrisEnabled(%s)", kName, TruthWord(enabled));
    });
}

int OrvexSnmpFocus::GetAutoIrisEnabled(bool& enabled) const {
    constexpr auto kName = "GetAutoIrisEnabled";
    return PlatformCall(*_logger, kName, "Exception while GetAutoIrisEnabled", [&] {
        const bool current = _irisClient->GetAutoIris();
        _logger->Information("%s: GetAutoIrisEnabled()=%s", kName, TruthWord(current));
        enabled = current;
    });
}

int OrvexSnmpFocus::SetAutoFocusEnabled(bool enabled) const {
    constexpr auto kName = "SetAutoFocusEnabled";
    return PlatformCall(*_logger, kName, "Exception while SetAutoFocusEnabled", [&] {
        _client->SetAutoFocus(enabled);
        _settings.SetValue(kModeKey, enabled ? kModeAuto : kModeManual);
        _logger->Information("%s: SetAutoFocusEnabled(%s)", kName, TruthWord(enabled));
    });
}

int OrvexSnmpFocus::GetAutoFocusEnabled(bool& enabled) const {
    constexpr auto kName = "GetAutoFocusEnabled";
    return PlatformCall(*_logger, kName, "Exception while _settings.GetValue", [&] {
        // Fixed: docs/contract.md, auto-focus-mode.
        const std::string mode = _settings.GetValue(kModeKey);
        const bool automatic = mode != kModeManual;
        _logger->Information("%s: _settings.GetValue([Imaging/Focus/AutoFocus]Mode) = %s,%d", kName, mode.c_str(),
                             automatic ? 1 : 0);
        enabled = automatic;
    });
}

int OrvexSnmpFocus::MoveFocus(int direction) const {
    constexpr auto kName = "MoveFocus";
    return PlatformCall(*_logger, kName, "Exception while MoveFocus", [&] {
        _client->MoveFocus(direction);
        _logger->Information("%s: -1Near,0,+1Far MoveFocus(%d)", kName, direction);
    });
}

int OrvexSnmpFocus::AutoFocus(bool start) const {
    constexpr auto kName = "AutoFocus";
    return PlatformCall(*_logger, kName, "Exception while AutoFocus", [&] {
        _clientV2->AutoFocus(start);
        _logger->Information("%s: AutoFocus(%s)", kName, TruthWord(start));
    });
}

int OrvexSnmpFocus::GetMinPosition(double& position) const {
    return PlatformRead(
        *_logger, "GetMinPosition", "Exception while GetMinPosition", position,
        [this] { return _clientV2->GetMinPosition(); },
        [this](double current) { _logger->Information("GetMinPosition: GetMinPosition()=%f", current); });
}

int OrvexSnmpFocus::GetMaxPosition(double& position) const {
    return PlatformRead(
        *_logger, "GetMaxPosition", "Exception while GetMaxPosition", position,
        [this] { return _clientV2->GetMaxPosition(); },
        [this](double current) { _logger->Information("GetMaxPosition: GetMaxPosition()=%f", current); });
}

int OrvexSnmpFocus::GetMinTranslation(double& translation) const {
    return PlatformRead(
        *_logger, "GetMinTranslation", "Exception while GetMinTranslation", translation,
        [this] { return _clientV2->GetMinTranslation(); },
        [this](double current) { _logger->Information("GetMinTranslation: GetMinTranslation()=%f", current); });
}

int OrvexSnmpFocus::GetMaxTranslation(double& translation) const {
    return PlatformRead(
        *_logger, "GetMaxTranslation", "Exception while GetMaxTranslation", translation,
        [this] { return _clientV2->GetMaxTranslation(); },
        [this](double current) { _logger->Information("GetMaxTranslation: GetMaxTranslation()=%f", current); });
}

int OrvexSnmpFocus::GetPosition(double& position) const {
    return PlatformRead(
        *_logger, "GetPosition", "Exception while GetPosition", position, [this] { return _clientV2->GetPosition(); },
        [this](double current) { _logger->Information("GetPosition: GetPosition()=%f", current); });
}

int OrvexSnmpFocus::SetPosition(double position) const {
    constexpr auto kName = "SetPosition";
    return PlatformCall(*_logger, kName, "Exception while SetPosition", [&] {
        _clientV2->SetPosition(position);
        _logger->Information("%s: SetPosition(%f)", kName, position);
    });
}

int OrvexSnmpFocus::RelativeFocus(double translation) const {
    constexpr auto kName = "RelativeFocus";
    return PlatformCall(*_logger, kName, "Exception while RelativeFocus", [&] {
        _clientV2->RelativeFocus(translation);
        _logger->Information("%s: RelativeFocus(%f)", kName, translation);
    });
}

int OrvexSnmpFocus::ScaleValues(std::uint32_t value, std::uint32_t inMin, std::uint32_t inMax, std::uint32_t outMin,
                                std::uint32_t outMax) const {
    return ScaleLinearly(value, inMin, inMax, outMin, outMax);
}

// Fixed: docs/contract.md, focus-continuous.
int OrvexSnmpFocus::CommitContinuous(const PositionCommand& command) const {
    int result = SNMP_ERR_NOERROR;
    if (SpeedInRange(*_logger, kHandler, command.speed)) {
        SetPosition(command.speed < 0 ? kMaxPosition : kMinPosition);
    } else {
        result = SNMP_ERR_GENERR;
    }
    // Fixed: docs/contract.md, continuous-line.
    _logger->Information("%s: continuous focus=%d, speed=%d", kHandler, command.mode, command.speed);
    return result;
}

int OrvexSnmpFocus::Commit(const PositionCommand& command, double current) const {
    switch (command.mode) {
        case PositionCommand::kStop:
            return StopCommand(
                command, [this](int mode) { _logger->Information("%s: stop focus (%d)", kHandler, mode); },
                [this](int speed) { _logger->Error("%s: stop focus speed not zero(%d)", kHandler, speed); },
                // Fixed: docs/contract.md, focus-stop.
                [&] { SetPosition(current); });
        case PositionCommand::kDelta: {
            _logger->Information("%s: delta focus (%d)", kHandler, command.mode);
            const double step = Percent(command);
            const double target =
                std::clamp(command.speed < 0 ? current - step : step + current, kMinPosition, kMaxPosition);
            _logger->Information("%s: Delta focus newFocusPosition -> %f", kHandler, target);
            SetPosition(target);
            return SNMP_ERR_NOERROR;
        }
        case PositionCommand::kAbsolute: {
            const double target = Percent(command);
            _logger->Information("%s: Absolute focus newFocusPosition -> %f", kHandler, target);
            SetPosition(target);
            return SNMP_ERR_NOERROR;
        }
        case PositionCommand::kContinuous:
            return CommitContinuous(command);
        default:
            // Fixed: docs/contract.md, unknown-mode-line.
            _logger->Error("%s: unknown focus mode (%d)", kHandler, command.speed);
            return SNMP_ERR_GENERR;
    }
}

int OrvexSnmpFocus::handle_positionFocusLens(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                             netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& focus = *GetInstance();
    double current = 0.0;
    return HandlePosition(
        kHandler, focus.GetLogger(), focus._lastFocus, info, requests,
        [&](const PositionCommand&) {
            // Fixed: docs/contract.md, focus-reads-first.
            if (focus.GetPosition(current) != 0) return;
            focus.GetLogger().Information("%s: current focus position %0.2f", kHandler, current);
        },
        [&](const PositionCommand& command) { return focus.Commit(command, current); });
}

void OrvexSnmpFocus::ApplyFeatureControl() const {
    const auto [features, state] = _lastControl;
    const bool enable = (state & kEnable) != 0;
    if ((features & kAutoFocus) != 0) {
        SetAutoFocusEnabled(enable);
        if (enable) AutoFocus(true);
    }
    if ((features & kAutoIris) != 0) SetAutoIrisEnabled(enable);
}

int OrvexSnmpFocus::handle_systemLensFeatureControl(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                                    netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_systemLensFeatureControl";
    auto& focus = *GetInstance();
    const auto& logger = focus.GetLogger();
    logger.Trace("%s: Enter.", kName);
    LogReceivedOid(logger, tavos::core::kDebug, kName, requests);
    logger.Information("%s: last=%02x %02x", kName, focus._lastControl[0], focus._lastControl[1]);
    if (info->mode == MODE_SET_COMMIT) {
        focus._lastControl = ReadOctets<2>(*requests->requestvb);
        // Fixed: docs/contract.md, lens-control-no-error.
        focus.ApplyFeatureControl();
    } else if (info->mode == MODE_GET) {
        AnswerOctets(requests, focus._lastControl);
    }
    logger.Trace("%s: Done.", kName);
    return SNMP_ERR_NOERROR;
}

int OrvexSnmpFocus::handle_systemLensFeatureStatus(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                                   netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_systemLensFeatureStatus";
    const auto& focus = *GetInstance();
    const auto& logger = focus.GetLogger();
    if (!BeginRead(logger, kName, info, requests)) return SNMP_ERR_GENERR;
    // A feature that cannot be read counts as off.
    bool autoFocus = false;
    bool autoIris = false;
    focus.GetAutoFocusEnabled(autoFocus);
    focus.GetAutoIrisEnabled(autoIris);
    logger.Information("%s: autoIris=%s,autoFocus=%s", kName, TruthWord(autoIris), TruthWord(autoFocus));
    const auto status = static_cast<std::uint8_t>((autoIris ? kAutoIris : 0) | (autoFocus ? kAutoFocus : 0));
    AnswerOctets(requests, &status, sizeof status);
    logger.Trace("%s: Done.", kName);
    return SNMP_ERR_NOERROR;
}

int OrvexSnmpFocus::handle_systemLensEquipped(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                              netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_systemLensEquipped";
    auto& focus = *GetInstance();
    const auto& logger = focus.GetLogger();
    int result = SNMP_ERR_NOERROR;
    logger.Trace("%s: Enter.", kName);
    LogReceivedOid(logger, tavos::core::kDebug, kName, requests);
    if (info->mode == MODE_GET) {
        AnswerOctets(requests, &focus._equipped, sizeof focus._equipped);
    } else if (info->mode == MODE_SET_COMMIT) {
        const auto received = ReadOctets<4>(*requests->requestvb);
        if ((received[0] & ~kAutoFocus) == 0) {
            focus._equipped = received[0];
            // Fixed: docs/contract.md, lens-equipped-four.
            AnswerOctets(requests, received);
        } else {
            result = SNMP_ERR_GENERR;
        }
    }
    logger.Trace("%s: Done.", kName);
    return result;
}
