#include "trace/agent/PduSection.h"

#include <algorithm>
#include <cstring>

namespace trace {

namespace {

constexpr std::size_t kMaxNameLength = 0xFFFF;

/// Sub-identifiers are as wide as a long in the agent and four octets wide in the record.
void PutSubidentifiers(RecordBuilder& record, const oid* from, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        const auto subidentifier = static_cast<std::uint32_t>(from[i]);
        record.Put(&subidentifier, sizeof subidentifier);
    }
}

/// Whether the agent holds the type's values as a long.
bool IsInteger(int type) noexcept {
    return type == ASN_INTEGER || type == ASN_COUNTER || type == ASN_GAUGE || type == ASN_TIMETICKS ||
           type == ASN_UINTEGER;
}

std::int64_t IntegerOf(const netsnmp_variable_list& variable) noexcept {
    std::int64_t value = 0;
    if (variable.val_len == sizeof(long)) {
        value = *variable.val.integer;
    } else if (variable.val_len == sizeof(std::int32_t)) {
        std::int32_t narrow = 0;
        std::memcpy(&narrow, variable.val.integer, sizeof narrow);
        value = narrow;
    }
    return variable.type == ASN_INTEGER ? value : static_cast<std::uint32_t>(value);
}

void PutBinding(RecordBuilder& record, const netsnmp_variable_list& variable) noexcept {
    const bool hasValue = variable.val.string != nullptr && variable.val_len > 0;
    BindingHead head{};
    head.nameLength = static_cast<std::uint16_t>(std::min<std::size_t>(variable.name_length, kMaxNameLength));
    if (variable.name == nullptr) head.nameLength = 0;
    head.type = variable.type;
    const bool isNumber = IsInteger(variable.type) || variable.type == ASN_COUNTER64;
    const bool isName = variable.type == ASN_OBJECT_ID;
    const std::size_t subidentifiers = variable.val_len / sizeof(oid);
    if (hasValue) {
        head.valueLength = static_cast<std::uint32_t>(isNumber ? 8 : isName ? subidentifiers * 4 : variable.val_len);
    }
    record.Put(&head, sizeof head);
    PutSubidentifiers(record, variable.name, head.nameLength);
    if (!hasValue) return;
    if (variable.type == ASN_COUNTER64) {
        const auto value = std::uint64_t{static_cast<std::uint32_t>(variable.val.counter64->high)} << 32 |
                           static_cast<std::uint32_t>(variable.val.counter64->low);
        record.Put(&value, sizeof value);
    } else if (isNumber) {
        const std::int64_t value = IntegerOf(variable);
        record.Put(&value, sizeof value);
    } else if (isName) {
        PutSubidentifiers(record, variable.val.objid, subidentifiers);
    } else {
        record.Put(variable.val.string, variable.val_len);
    }
    record.Pad(4);
}

}  // namespace

void AddPdu(RecordBuilder& record, Section kind, const netsnmp_pdu& pdu) noexcept {
    PduHead head{};
    head.command = pdu.command;
    head.errorStatus = static_cast<std::int32_t>(pdu.errstat);
    head.errorIndex = static_cast<std::int32_t>(pdu.errindex);
    head.requestId = static_cast<std::uint32_t>(pdu.reqid);
    for (const auto* variable = pdu.variables; variable != nullptr; variable = variable->next_variable) ++head.count;
    record.Open(kind);
    record.Put(&head, sizeof head);
    for (const auto* variable = pdu.variables; variable != nullptr; variable = variable->next_variable) {
        PutBinding(record, *variable);
    }
    record.Close();
}

bool IsEncrypted(const netsnmp_pdu& pdu) noexcept {
    return pdu.version == SNMP_VERSION_3 && pdu.securityLevel == SNMP_SEC_LEVEL_AUTHPRIV;
}

}  // namespace trace
