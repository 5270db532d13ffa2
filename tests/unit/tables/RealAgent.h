#pragma once

#include <string>
#include <vector>

#include "core/NetSnmp.h"

/// The real agent in the test's process, without a network. A request goes through all its code (sets in their phases,
/// GETNEXT and GETBULK in their rounds) to the registered handlers, and returns its answer. One per process; it exists
/// until the process ends.
class RealAgent {
public:
    /// The first call starts it.
    static RealAgent& Get();

    struct Value {
        u_char type = ASN_NULL;
        long integer = 0;
        std::string octets;  ///< of every type but INTEGER
    };
    struct Binding {
        std::vector<oid> name;
        Value value;
        /// ".1.3.6.1 = 5", ".1.3.6.1 = BNK2", ".1.3.6.1 = noSuchInstance"
        std::string Text() const;
    };
    struct Answer {
        long error = -1;  ///< SNMP_ERR_..., or -1 when there was none
        long index = 0;   ///< of the failing binding, 0 for none
        std::vector<Binding> bindings;
        std::vector<std::string> Text() const;
    };

    Answer Send(int command, const std::vector<Binding>& bindings, long maxRepetitions = 0);

private:
    RealAgent();
    static int Receive(int operation, netsnmp_session*, int, netsnmp_pdu* pdu, void*);

    netsnmp_session* _session;
    Answer _answer;
};
