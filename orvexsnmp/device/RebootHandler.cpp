#include "device/RebootHandler.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "core/HandlerSteps.h"
#include "core/OrvexSnmpMain.h"

namespace {

constexpr auto kName = "handle_rebootDevice";

std::int32_t s_rebootDeviceValue = 0;

// Runs the restart script in a child; the agent goes on at once. A child that cannot be had is not reported.
void StartRestart(const tavos::core::Logger& logger) {
    static pid_t s_lastChild = -1;
    // A camera ends before its script does; where it does not, the last script's process is collected here.
    if (s_lastChild > 0) waitpid(s_lastChild, nullptr, WNOHANG);

    constexpr auto kCommand =
        "/bin/chmod +x " ORVEX_RESTART_SCRIPT " && /bin/sleep 3 && " ORVEX_RESTART_SCRIPT " -s -k";
    const char* const arguments[] = {"/bin/sh", "-c", kCommand, nullptr};
    // The child runs in the agent's memory until execv: it must not return from here.
    const pid_t child = vfork();
    if (child == 0) {
        execv("/bin/sh", const_cast<char* const*>(arguments));
        logger.Error("%s: error with execve, calling system()...", kName);
        const int ignored = std::system("chmod +x " ORVEX_RESTART_SCRIPT " && " ORVEX_RESTART_SCRIPT " -s -k");
        static_cast<void>(ignored);
        _exit(2);
    }
    s_lastChild = child;
}

}  // namespace

int handle_rebootDevice(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                        netsnmp_request_info* requests) {
    const auto& logger = *OrvexSnmpMain::GetLogger();
    LogReceivedOid(logger, tavos::core::kDebug, kName, requests, "%s: Received OID %s\n");
    switch (info->mode) {
        case MODE_SET_RESERVE1:
            if (requests->requestvb->type != ASN_INTEGER) {
                netsnmp_set_request_error(info, requests, SNMP_ERR_WRONGTYPE);
            }
            break;
        case MODE_SET_RESERVE2:
        case MODE_SET_FREE:
            break;
        case MODE_SET_ACTION:
            s_rebootDeviceValue = ReadInteger(*requests->requestvb);
            DEBUGMSGTL((kName, "The new value of rebootDevice is %d \n", s_rebootDeviceValue));
            break;
        case MODE_SET_COMMIT:
            AnswerInteger(requests, s_rebootDeviceValue);
            logger.Error("%s: rebootDevice variable set for this camera using snmpset, rebooting system now!!!!",
                         kName);
            StartRestart(logger);
            break;
        case MODE_SET_UNDO:
            s_rebootDeviceValue = 0;
            break;
        case MODE_GET:
            AnswerInteger(requests, s_rebootDeviceValue);
            break;
        default:
            return UnknownMode(logger, kName, info);
    }
    return SNMP_ERR_NOERROR;
}
