#pragma once

#include <functional>
#include <map>
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
        std::string trapOid;    ///< the value of the first binding, ".1.3.6..."
        std::string name;       ///< the name of the second binding
        u_char type;            ///< of the second binding
        unsigned long value;    ///< its 32 bits
        std::size_t bindings;   ///< how many the list has
        std::string firstName;  ///< the name of the first binding
        u_char firstType;       ///< its type
    };
    std::vector<SentTrap> traps;
    /// Runs inside every sending of a trap, after the trap was recorded.
    std::function<void()> whileSending;

    /// Handlers of the instances that were registered, by name.
    std::map<std::string, Netsnmp_Node_Handler*> handlers;

    /// The data sets of the tables that were registered, by name. They belong to their tables.
    std::map<std::string, netsnmp_table_data_set*> dataSets;

    /// Values that were put into a variable since the last SnmpRequest::Call began, with the width they were handed
    /// over in. An INTEGER's width cannot be told from the variable afterwards: the library widens it to a long.
    struct Answer {
        u_char type;
        std::size_t width;
        bool operator==(const Answer& other) const { return type == other.type && width == other.width; }
    };
    std::vector<Answer> answers;

    int readDescriptor = -1;  ///< what the module has registered
    void (*readCallback)(int, void*) = nullptr;
    void* readData = nullptr;
    std::map<unsigned, SNMPAlarmCallback*> alarms;  ///< by the number that the module was given, 1 and up
    unsigned lastAlarm = 0;
    bool unregisteredOpen = false;  ///< the descriptor was still open when it was unregistered
};

FakeAgent& Agent();
void ResetAgent();

/// Dotted text with a leading dot.
std::string OidText(const oid* name, std::size_t length);
