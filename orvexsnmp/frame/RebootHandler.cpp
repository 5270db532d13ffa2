#include "frame/RebootHandler.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "core/HandlerSteps.h"
#include "frame/OrvexSnmpMain.h"

namespace {

constexpr auto kName = "handle_rebootDevice";

std::int32_t s_rebootDeviceValue = 0;

// Usually the camera restarts before its restart script ends. Otherwise an alarm of the agent collects the ended
// children. The alarm runs while there is a child. See docs/contract.md, children-collected.
std::vector<pid_t> s_children;
unsigned int s_collector = 0;  // the alarm; 0: none

void CollectEnded(unsigned int /*alarm*/, void* /*data*/) {
    const auto ended = [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; };
    s_children.erase(std::remove_if(s_children.begin(), s_children.end(), ended), s_children.end());
    if (!s_children.empty()) return;
    snmp_alarm_unregister(s_collector);
    s_collector = 0;
}

// Runs the restart script in a child; the agent continues at once. A failed fork is not reported.
void StartRestart(const tavos::core::Logger& logger) {
    constexpr unsigned int kSeconds = 1;
    s_children.reserve(s_children.size() + 1);  // reserve room before the fork: push_back must not throw after it
    constexpr auto kCommand =
        "/bin/chmod +x " ORVEX_RESTART_SCRIPT " && /bin/sleep 3 && " ORVEX_RESTART_SCRIPT " -s -k";
    const char* const arguments[] = {"/bin/sh", "-c", kCommand, nullptr};
    // Hazard: the child shares the agent's memory until execv. It must not return from this function.
    const pid_t child = vfork();
    if (child == 0) {
        execv("/bin/sh", const_cast<char* const*>(arguments));
        logger.Error("%s: error with execve, calling system()...", kName);
        const int ignored = std::system("chmod +x " ORVEX_RESTART_SCRIPT " && " ORVEX_RESTART_SCRIPT " -s -k");
        static_cast<void>(ignored);
        _exit(2);
    }
    if (child < 0) return;
    s_children.push_back(child);
    if (s_collector == 0) s_collector = snmp_alarm_register(kSeconds, SA_REPEAT, CollectEnded, nullptr);
}

}  // namespace

int handle_rebootDevice(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                        netsnmp_request_info* requests) {
    const auto& logger = *OrvexSnmpMain::GetLogger();
    LogReceivedOid(logger, tavos::core::kDebug, kName, requests, "\n");
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
            // Fixed: docs/contract.md, reboot-any-integer.
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
