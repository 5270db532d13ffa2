// A module for the agent that takes TCP wrappers off its requests. Debian's agent is linked with libwrap and lets it
// read /etc/hosts.allow and /etc/hosts.deny anew for every message; the agent has no option against that. Load it only
// where something else decides who may send to the agent.

#include <dlfcn.h>
#include <net-snmp/net-snmp-config.h>

#include <cstdio>  // net-snmp 5.4's next header does not include it
//
#include <net-snmp/library/snmp_logging.h>

namespace {

/// libwrap's variables (its header tcpd.h declares them): the names of the two files. Null in an agent without libwrap.
struct Tables {
    char** allow;
    char** deny;
};

Tables Find() noexcept {
    return {static_cast<char**>(dlsym(RTLD_DEFAULT, "hosts_allow_table")),
            static_cast<char**>(dlsym(RTLD_DEFAULT, "hosts_deny_table"))};
}

// The kernel refuses an empty name at once (ENOENT), and libwrap reads a file that is missing as an empty one.
char s_noFile[] = "";
char* s_allow = nullptr;  // the agent's own names, while this module is loaded
char* s_deny = nullptr;

}  // namespace

extern "C" __attribute__((visibility("default"))) int init_orvexnowrap() {
    const Tables tables = Find();
    if (tables.allow == nullptr || tables.deny == nullptr) return 0;
    s_allow = *tables.allow;
    s_deny = *tables.deny;
    *tables.allow = *tables.deny = s_noFile;
    snmp_log(LOG_NOTICE, "orvexnowrap: /etc/hosts.allow and /etc/hosts.deny do not apply to this agent\n");
    return 0;
}

/// The agent unloads the module at a reload: libwrap must not keep a name that lies in it.
extern "C" __attribute__((visibility("default"))) int deinit_orvexnowrap() {
    const Tables tables = Find();
    if (tables.allow != nullptr && *tables.allow == s_noFile) *tables.allow = s_allow;
    if (tables.deny != nullptr && *tables.deny == s_noFile) *tables.deny = s_deny;
    return 0;
}
