#include "motion/OrvexSnmpPresets.h"

#include <cstdint>

#include "core/PlatformCall.h"

namespace {

// The answers of the two objects. No SET changes them.
constexpr std::int32_t kGotoValue = 0;
constexpr std::int32_t kStoreValue = 0;

// Fixed: docs/contract.md, presets-do-nothing.
int AnswerAlways(const char* name, netsnmp_request_info* requests, std::int32_t value) {
    const auto& logger = OrvexSnmpPresets::GetInstance()->GetLogger();
    logger.Trace("%s: Enter.", name);
    LogReceivedOid(logger, tavos::core::kDebug, name, requests);
    AnswerInteger(requests, value);
    logger.Trace("%s: Done.", name);
    return SNMP_ERR_NOERROR;
}

}  // namespace

OrvexSnmpPresets::OrvexSnmpPresets(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpPresets");
    _client.reset(tavos::interfaces::IPresetsProvider::CreateClient(&bus));
    _clientV2.reset(tavos::interfaces::IPresetsV2Provider::CreateClient(&bus));
    _logger->Trace("%s: Done.", "OrvexSnmpPresets");
}

OrvexSnmpPresets::~OrvexSnmpPresets() {
    _client.reset();
    _clientV2.reset();
}

// Fixed: docs/contract.md, preset-lines.
int OrvexSnmpPresets::GetMaxPresets(unsigned int& count) const {
    constexpr auto kName = "GetMaxPresets";
    return PlatformCall(*_logger, kName, "Exception while GetMaxPresets", [&] {
        const unsigned int presets = _clientV2->GetMaxPresets();
        _logger->Trace("%s: count=%d", kName, static_cast<int>(presets));
        count = presets;
    });
}

int OrvexSnmpPresets::handle_presetGotoPosition(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                                netsnmp_agent_request_info*, netsnmp_request_info* requests) {
    return AnswerAlways("handle_presetGotoPosition", requests, kGotoValue);
}

int OrvexSnmpPresets::handle_presetStorePosition(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                                 netsnmp_agent_request_info*, netsnmp_request_info* requests) {
    return AnswerAlways("handle_presetStorePosition", requests, kStoreValue);
}
