#include "io/OrvexSnmpPressure.h"

#include "core/PlatformCall.h"

namespace {

constexpr std::uint8_t kPressureAlarm = 0x10;

}  // namespace

OrvexSnmpPressure::OrvexSnmpPressure(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpPressure");
    _client.reset(tavos::interfaces::IAlarmV3Provider::CreateClient(&bus));
    _logger->Trace("%s: Done.", "OrvexSnmpPressure");
}

int OrvexSnmpPressure::GetAlarmState(bool& state) const {
    return PlatformRead(
        *_logger, "GetAlarmState", "Exception while GetAlarmState", state,
        [this] { return _client->GetAlarmState("BNK2", 0); },
        [this](bool on) { _logger->Information("GetAlarmState: bankName=BNK2 alarmId=0 state=%d", on ? 1 : 0); });
}

int OrvexSnmpPressure::handle_alarmStatus(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                          netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_alarmStatus";
    const auto& pressure = *GetInstance();
    const auto& logger = pressure.GetLogger();
    if (!BeginRead(logger, kName, info, requests)) return SNMP_ERR_GENERR;
    // Fixed: docs/contract.md, state-unread-is-0.
    bool state = false;
    pressure.GetAlarmState(state);
    // Fixed: docs/contract.md, alarm-temp.
    logger.Information("%s: alarmTemp=%s", kName, TruthWord(state));
    const std::uint8_t octet = state ? kPressureAlarm : 0;
    AnswerOctets(requests, &octet, sizeof octet);
    logger.Trace("%s: Done.", kName);
    return SNMP_ERR_NOERROR;
}
