#include "support/SnmpRequest.h"

#include "support/FakeAgent.h"

SnmpRequest::SnmpRequest(const oid* name, std::size_t length) {
    snmp_varlist_add_variable(&_variable, name, length, ASN_NULL, nullptr, 0);
    _request.requestvb = _variable;
}

SnmpRequest::~SnmpRequest() {
    snmp_free_varbind(_variable);
}

SnmpRequest& SnmpRequest::With(u_char type, const void* value, std::size_t length) {
    // As octets first: net-snmp would refuse to store some types, but the tests need their buffer.
    snmp_set_var_typed_value(_variable, ASN_OCTET_STR, value, length);
    _variable->type = type;
    return *this;
}

SnmpRequest& SnmpRequest::WithOctets(const std::vector<u_char>& octets) {
    return With(ASN_OCTET_STR, octets.data(), octets.size());
}

SnmpRequest& SnmpRequest::WithInteger(long value) {
    snmp_set_var_typed_value(_variable, ASN_INTEGER, reinterpret_cast<const u_char*>(&value), sizeof value);
    return *this;
}

SnmpRequest& SnmpRequest::WithRangeEnd(const std::vector<oid>& rangeEnd) {
    _rangeEnd = rangeEnd;
    _request.range_end = _rangeEnd.data();
    _request.range_end_len = _rangeEnd.size();
    return *this;
}

int SnmpRequest::Call(Netsnmp_Node_Handler* handler, int mode) {
    Agent().answers.clear();
    _info.mode = mode;
    return handler(nullptr, nullptr, &_info, &_request);
}

int SnmpRequest::Set(Netsnmp_Node_Handler* handler) {
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT}) {
        const int result = Call(handler, mode);
        const int error = result != SNMP_ERR_NOERROR ? result : Mark();
        if (error == SNMP_ERR_NOERROR) continue;
        if (mode < MODE_SET_ACTION) Call(handler, MODE_SET_FREE);
        if (mode == MODE_SET_ACTION) Call(handler, MODE_SET_UNDO);
        return error;
    }
    return SNMP_ERR_NOERROR;
}

std::vector<u_char> SnmpRequest::Octets() const {
    return {_variable->val.string, _variable->val.string + _variable->val_len};
}
