#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/NetSnmp.h"

/// The agent in the unit tests: real net-snmp libraries. Recorders replace the few functions that reach the running
/// agent: register and unregister instances, tables and descriptors, and send traps.
struct FakeAgent {
    /// Names of registrations that the agent must refuse: "modelNumber", "alarmStatesTable", "readfd".
    std::set<std::string> refusing;

    struct SentTrap {
        std::string trapOid;    ///< the value of the first binding, ".1.3.6..."
        std::string name;       ///< the name of the second binding
        u_char type;            ///< of the second binding
        unsigned long value;    ///< its 32 bits
        std::size_t bindings;   ///< the number of bindings in the list
        std::string firstName;  ///< the name of the first binding
        u_char firstType;       ///< its type
    };
    std::vector<SentTrap> traps;
    /// Called while a trap is sent, after it was recorded.
    std::function<void()> whileSending;

    /// Handlers of the registered instances, by name.
    std::map<std::string, Netsnmp_Node_Handler*> handlers;

    /// The data sets of the registered tables, by name. The tables own them.
    std::map<std::string, netsnmp_table_data_set*> dataSets;

    /// Values set in a variable since the last SnmpRequest::Call began, with their width in bytes. The variable itself
    /// does not show an INTEGER's width, because the library widens it to a long.
    struct Answer {
        u_char type;
        std::size_t width;
        bool operator==(const Answer& other) const { return type == other.type && width == other.width; }
    };
    std::vector<Answer> answers;

    int readDescriptor = -1;  ///< registered by the module
    void (*readCallback)(int, void*) = nullptr;
    void* readData = nullptr;
    std::map<unsigned, SNMPAlarmCallback*> alarms;  ///< by the number that the module got, 1 and up
    unsigned lastAlarm = 0;
    bool unregisteredOpen = false;  ///< the descriptor was still open when it was unregistered
};

FakeAgent& Agent();
void ResetAgent();

/// Dotted text with a leading dot.
std::string OidText(const oid* name, std::size_t length);
