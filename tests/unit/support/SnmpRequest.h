#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "core/NetSnmp.h"

/// One request as the agent hands it to a handler: one varbind, with a value for a SET, and a range end for GETNEXT.
class SnmpRequest {
public:
    template <std::size_t Length>
    explicit SnmpRequest(const oid (&name)[Length]) : SnmpRequest(name, Length) {}
    SnmpRequest(const oid* name, std::size_t length);
    ~SnmpRequest();
    SnmpRequest(const SnmpRequest&) = delete;
    SnmpRequest& operator=(const SnmpRequest&) = delete;

    /// The value of a SET, as it stands in the varbind's buffer.
    SnmpRequest& With(u_char type, const void* value, std::size_t length);
    SnmpRequest& WithOctets(const std::vector<u_char>& octets);
    SnmpRequest& WithInteger(long value);

    SnmpRequest& WithRangeEnd(const std::vector<oid>& rangeEnd);

    /// Puts another request behind this one, as several varbinds of one PDU reach a table's handler.
    void Chain(SnmpRequest& next) { _request.next = &next._request; }

    /// Calls the handler in one mode and returns its result.
    int Call(Netsnmp_Node_Handler* handler, int mode);

    /// RESERVE1, RESERVE2, ACTION, COMMIT, ending at the first result or mark that is an error, as the agent does
    /// (FREE after a failed reserve, UNDO after a failed action). Returns that result, 0 when all succeed.
    int Set(Netsnmp_Node_Handler* handler);

    /// What a handler has put into the varbind.
    u_char Type() const { return _variable->type; }
    std::size_t Length() const { return _variable->val_len; }
    std::vector<u_char> Octets() const;
    long Integer() const { return *_variable->val.integer; }

    /// What the request was marked with by netsnmp_set_request_error.
    int Mark() const { return _request.status; }

    netsnmp_request_info& Raw() { return _request; }

private:
    netsnmp_variable_list* _variable = nullptr;
    netsnmp_request_info _request{};
    netsnmp_agent_request_info _info{};
    std::vector<oid> _rangeEnd;
};

inline bool IsRead(int mode) {
    return mode == MODE_GET || mode == MODE_GETNEXT;
}
