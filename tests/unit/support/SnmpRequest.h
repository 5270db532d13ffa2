#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "core/NetSnmp.h"

/// One request as the agent passes it to a handler: one varbind, with a value for a SET, and a range end for GETNEXT.
class SnmpRequest {
public:
    template <std::size_t Length>
    explicit SnmpRequest(const oid (&name)[Length]) : SnmpRequest(name, Length) {}
    SnmpRequest(const oid* name, std::size_t length);
    ~SnmpRequest();
    SnmpRequest(const SnmpRequest&) = delete;
    SnmpRequest& operator=(const SnmpRequest&) = delete;

    /// The value of a SET, as in the varbind's buffer.
    SnmpRequest& With(u_char type, const void* value, std::size_t length);
    SnmpRequest& WithOctets(const std::vector<u_char>& octets);
    SnmpRequest& WithInteger(long value);

    SnmpRequest& WithRangeEnd(const std::vector<oid>& rangeEnd);

    /// Appends another request, as when a table's handler gets several varbinds of one PDU.
    void Chain(SnmpRequest& next) { _request.next = &next._request; }

    /// Calls the handler in one mode and returns its result.
    int Call(Netsnmp_Node_Handler* handler, int mode);

    /// RESERVE1, RESERVE2, ACTION, COMMIT. Like the agent, stops at the first result or mark that is an error, and
    /// calls FREE after a failed reserve or UNDO after a failed action. Returns that error, 0 when all succeed.
    int Set(Netsnmp_Node_Handler* handler);

    /// The handler's answer in the varbind.
    u_char Type() const { return _variable->type; }
    std::size_t Length() const { return _variable->val_len; }
    std::vector<u_char> Octets() const;
    long Integer() const { return *_variable->val.integer; }

    /// The request's mark by netsnmp_set_request_error.
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
