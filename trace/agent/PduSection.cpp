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

/// Reads the elements of a message one after the other, whatever their tags; after a broken one there are no more.
class Elements {
public:
    struct Element {
        const std::byte* data = nullptr;
        std::size_t length = 0;
    };

    explicit Elements(const Element& all) noexcept : _rest(all) {}

    Element Next() noexcept {
        constexpr std::size_t kHead = 2;
        constexpr std::uint8_t kLongForm = 0x80;
        if (_rest.length < kHead) return End();
        std::uint64_t length = std::to_integer<std::uint8_t>(_rest.data[1]);
        const std::size_t count = length < kLongForm ? 0 : length & ~std::uint64_t{kLongForm};
        if (count > sizeof length || _rest.length < kHead + count) return End();
        if (count > 0) length = 0;
        for (std::size_t i = 0; i < count; ++i) length = length << 8 | std::to_integer<std::uint8_t>(_rest.data[2 + i]);
        if (length > _rest.length - kHead - count) return End();
        const Element element{_rest.data + kHead + count, static_cast<std::size_t>(length)};
        _rest = {element.data + element.length, _rest.length - kHead - count - element.length};
        return element;
    }

    /// The next element's last 32 bits as a number.
    std::uint32_t NextNumber() noexcept {
        const Element element = Next();
        std::uint32_t number = 0;
        for (std::size_t i = 0; i < element.length; ++i) {
            number = number << 8 | std::to_integer<std::uint8_t>(element.data[i]);
        }
        return number;
    }

private:
    Element End() noexcept {
        _rest = {};
        return {};
    }

    Element _rest;
};

}  // namespace

bool MayBeOf(const netsnmp_pdu& pdu, const std::byte* message, std::size_t length) noexcept {
    Elements fields(Elements({message, length}).Next());
    const std::uint32_t version = fields.NextNumber();
    if (version != static_cast<std::uint32_t>(pdu.version)) return false;
    if (version != SNMP_VERSION_3) fields.Next();  // the community
    // The PDU, or the head of a message of SNMPv3: each begins with an id.
    const std::uint32_t id = Elements(fields.Next()).NextNumber();
    return id == static_cast<std::uint32_t>(version == SNMP_VERSION_3 ? pdu.msgid : pdu.reqid);
}

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
