#include "lens/OrvexSnmpWiper.h"

namespace {

// The reserve phase of the two writable objects. It logs the line even for the right type.
void CheckOctetString(const tavos::core::Logger& logger, const char* name, netsnmp_agent_request_info* info,
                      netsnmp_request_info* requests) {
    // Fixed: docs/contract.md, wrong-type-line.
    logger.Information("%s: Wrong type, must be octet string...", name);
    if (requests->requestvb->type != ASN_OCTET_STR) netsnmp_set_request_error(info, requests, SNMP_ERR_WRONGTYPE);
}

}  // namespace

OrvexSnmpWiper::OrvexSnmpWiper(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpWiper");
    _client.reset(tavos::interfaces::IFanV2Provider::CreateClient(&bus));
    _logger->Trace("%s: Done.", "OrvexSnmpWiper");
}

int OrvexSnmpWiper::handle_systemCameraFeatureControl(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                                      netsnmp_agent_request_info* info,
                                                      netsnmp_request_info* requests) {
    constexpr auto kName = "handle_systemCameraFeatureControl";
    auto& wiper = *GetInstance();
    const auto& logger = wiper.GetLogger();
    int result = SNMP_ERR_NOERROR;
    logger.Trace("%s: Enter.", kName);
    LogReceivedOid(logger, tavos::core::kDebug, kName, requests);
    logger.Information("%s: last=%02x %02x", kName, wiper._lastControl[0], wiper._lastControl[1]);
    switch (info->mode) {
        case MODE_SET_RESERVE1:
            CheckOctetString(logger, kName, info, requests);
            break;
        case MODE_SET_RESERVE2:
        case MODE_SET_ACTION:
        case MODE_SET_FREE:
        case MODE_SET_UNDO:
        case MODE_GETNEXT:
            break;
        case MODE_SET_COMMIT:
            // Fixed: docs/contract.md, camera-features-stored.
            wiper._lastControl = ReadOctets<2>(*requests->requestvb);
            break;
        case MODE_GET:
            AnswerOctets(requests, wiper._lastControl);
            break;
        default:
            result = UnknownMode(logger, kName, info);
    }
    logger.Trace("%s: Done.", kName);
    return result;
}

int OrvexSnmpWiper::handle_systemCameraEquipped(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                                netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_systemCameraEquipped";
    auto& wiper = *GetInstance();
    const auto& logger = wiper.GetLogger();
    int result = SNMP_ERR_NOERROR;
    logger.Trace("%s: Enter.", kName);
    LogReceivedOid(logger, tavos::core::kDebug, kName, requests);
    switch (info->mode) {
        case MODE_SET_RESERVE1:
            CheckOctetString(logger, kName, info, requests);
            break;
        case MODE_SET_RESERVE2:
        case MODE_SET_ACTION:
        case MODE_SET_FREE:
        case MODE_SET_UNDO:
            break;
        case MODE_SET_COMMIT:
            // Fixed: docs/contract.md, camera-equipped-refused.
            wiper._equipped = ReadOctets<1>(*requests->requestvb)[0];
            result = SNMP_ERR_GENERR;
            break;
        case MODE_GET:
        case MODE_GETNEXT:
            AnswerOctets(requests, &wiper._equipped, sizeof wiper._equipped);
            break;
        default:
            result = UnknownMode(logger, kName, info);
    }
    logger.Trace("%s: Done.", kName);
    return result;
}
