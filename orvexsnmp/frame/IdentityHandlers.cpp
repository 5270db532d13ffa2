#include "frame/IdentityHandlers.h"

#include <cstring>
#include <string>

#include "core/HandlerSteps.h"
#include "frame/OrvexSnmpDevice.h"
#include "frame/OrvexSnmpMain.h"

namespace {

// How a text object answers if its text is empty. Fixed: docs/contract.md, missing-texts.
struct EmptyRule {
    bool tested;             // an empty text logs an Error line
    const char* substitute;  // sent instead of an empty text; null: sends the empty text
};

constexpr EmptyRule kNotTested = {false, nullptr};
constexpr EmptyRule kReportedOnly = {true, nullptr};

constexpr EmptyRule SentAs(const char* substitute) {
    return {true, substitute};
}

// The entry of all twelve handlers: false if the mode is not GET.
bool Begin(const char* name, const netsnmp_agent_request_info* info, const netsnmp_request_info* requests) {
    const auto& logger = *OrvexSnmpMain::GetLogger();
    LogReceivedOid(logger, tavos::core::kDebug, name, requests, "\n");
    if (info->mode == MODE_GET) return true;
    UnknownMode(logger, name, info);
    return false;
}

// Logs the line of a text object.
using TextLine = void (*)(const tavos::core::Logger& logger, const std::string& text);

int AnswerText(const char* name, const netsnmp_agent_request_info* info, netsnmp_request_info* requests,
               std::string (OrvexSnmpDevice::*getter)() const, EmptyRule empty, TextLine line) {
    if (!Begin(name, info, requests)) return SNMP_ERR_GENERR;
    const auto& logger = *OrvexSnmpMain::GetLogger();
    std::string text = (OrvexSnmpDevice::GetInstance()->*getter)();
    if (empty.tested && text.empty()) {
        logger.Error("%s: string empty", name);
        if (empty.substitute != nullptr) text = empty.substitute;
    }
    if (line != nullptr) line(logger, text);
    AnswerOctets(requests, text.data(), text.size());
    return SNMP_ERR_NOERROR;
}

// The handlers of constants. `line`, if not null, is the whole Information line, not a format.
int AnswerIdentity(const char* name, const netsnmp_agent_request_info* info, netsnmp_request_info* requests, int value,
                   const char* line) {
    if (!Begin(name, info, requests)) return SNMP_ERR_GENERR;
    if (line != nullptr) OrvexSnmpMain::GetLogger()->Information("%s", line);
    AnswerInteger(requests, value);
    return SNMP_ERR_NOERROR;
}

int AnswerIdentity(const char* name, const netsnmp_agent_request_info* info, netsnmp_request_info* requests,
                   const char* text, const char* line) {
    if (!Begin(name, info, requests)) return SNMP_ERR_GENERR;
    if (line != nullptr) OrvexSnmpMain::GetLogger()->Information("%s", line);
    AnswerOctets(requests, text, std::strlen(text));
    return SNMP_ERR_NOERROR;
}

}  // namespace

#include "objects/IdentityConstants.inc"

int handle_modelNumber(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                       netsnmp_request_info* requests) {
    return AnswerText("handle_modelNumber", info, requests, &OrvexSnmpDevice::GetModelNumber, kNotTested,
                      [](const tavos::core::Logger& logger, const std::string& text) {
                          logger.Information("handle_modelNumber: model number = %s, size = %d", text.c_str(),
                                             static_cast<int>(text.size()));
                      });
}

int handle_modelName(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                     netsnmp_request_info* requests) {
    return AnswerText("handle_modelName", info, requests, &OrvexSnmpDevice::GetModelName,
                      SentAs("Error: Model Name not defined"),
                      [](const tavos::core::Logger& logger, const std::string& text) {
                          logger.Information("handle_modelName: model name = %s", text.c_str());
                      });
}

int handle_serialNumber(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                        netsnmp_request_info* requests) {
    return AnswerText("handle_serialNumber", info, requests, &OrvexSnmpDevice::GetSerialNumber,
                      SentAs("Error: Serial Number not defined"),
                      [](const tavos::core::Logger& logger, const std::string& text) {
                          logger.Information("handle_serialNumber: serial number = %s", text.c_str());
                      });
}

int handle_fwVersion(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                     netsnmp_request_info* requests) {
    // Fixed: docs/contract.md, sw-is-fw.
    return AnswerText("handle_fwVersion", info, requests, &OrvexSnmpDevice::GetFwVer,
                      SentAs("Error: Firmware Version not defined"),
                      [](const tavos::core::Logger& logger, const std::string& text) {
                          logger.Information("handle_fwVersion: fw version = %s", text.c_str());
                      });
}

int handle_hwVersion(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                     netsnmp_request_info* requests) {
    return AnswerText("handle_hwVersion", info, requests, &OrvexSnmpDevice::GetHwVer,
                      SentAs("Error: Hardware Version not defined"), nullptr);
}

int handle_moduleMake(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                      netsnmp_request_info* requests) {
    // Fixed: docs/contract.md, identity-lines.
    return AnswerText("handle_moduleMake", info, requests, &OrvexSnmpDevice::GetManufacturer, kReportedOnly,
                      [](const tavos::core::Logger& logger, const std::string& text) {
                          logger.Information("handle_moduleMake: manufactuer = %s", text.c_str());
                      });
}

int handle_moduleModel(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                       netsnmp_request_info* requests) {
    return AnswerText("handle_moduleModel", info, requests, &OrvexSnmpDevice::GetModelNumber, kNotTested,
                      [](const tavos::core::Logger& logger, const std::string& text) {
                          logger.Information("handle_moduleModel: model number = %s, size = %d", text.c_str(),
                                             static_cast<int>(text.size()));
                      });
}

int handle_moduleVersion(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                         netsnmp_request_info* requests) {
    return AnswerText("handle_moduleVersion", info, requests, &OrvexSnmpDevice::GetModuleVersion, kReportedOnly,
                      [](const tavos::core::Logger& logger, const std::string& text) {
                          logger.Information("handle_moduleVersion: moduleVersion = %s", text.c_str());
                      });
}
