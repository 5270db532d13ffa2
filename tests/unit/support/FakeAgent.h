#pragma once

#include <set>
#include <string>
#include <vector>

#include "core/NetSnmp.h"

/// The agent as the unit tests have it: real net-snmp libraries, with the few functions that reach the running agent
/// replaced by recorders (register and unregister instances, tables and descriptors, send traps).
struct FakeAgent {
    /// Names of registrations that the agent refuses: "modelNumber", "alarmStatesTable", "readfd".
    std::set<std::string> refusing;

    struct SentTrap {
        std::string trapOid;   ///< the value of the first binding, ".1.3.6..."
        std::string name;      ///< the name of the second binding
        u_char type;           ///< of the second binding
        unsigned long value;   ///< its 32 bits
        std::size_t bindings;  ///< how many the list has
    };
    std::vector<SentTrap> traps;

    int readDescriptor = -1;  ///< what the module has registered
    void (*readCallback)(int, void*) = nullptr;
};

FakeAgent& Agent();
void ResetAgent();

/// Dotted text with a leading dot.
std::string OidText(const oid* name, std::size_t length);
