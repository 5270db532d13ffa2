#include "trace/reader/Record.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "tavos/osa/Exception.h"

namespace trace {

using tavos::osa::Exception;

namespace {

/// Reads a section's fields in the machine's byte order; throws beyond its end.
class Fields {
public:
    explicit Fields(std::string_view octets) : _rest(octets) {}

    template <class Type>
    Type Take() {
        Type value;
        std::memcpy(&value, Octets(sizeof value).data(), sizeof value);
        return value;
    }

    std::string_view Octets(std::size_t length) {
        if (length > _rest.size()) throw Exception("a section of the record is too short");
        const std::string_view octets = _rest.substr(0, length);
        _rest.remove_prefix(length);
        return octets;
    }

    std::string Text(std::size_t length) { return std::string(Octets(length)); }

    ObjectId Numbers(std::size_t count) {
        if (count > _rest.size() / sizeof(std::uint32_t)) throw Exception("a section of the record is too short");
        ObjectId id(count);
        const std::string_view octets = Octets(count * sizeof(std::uint32_t));
        if (count != 0) std::memcpy(id.data(), octets.data(), octets.size());
        return id;
    }

    void Align(std::size_t start) {
        const std::size_t used = start - _rest.size();
        constexpr std::size_t kAlignment = 4;
        const std::size_t padding = (kAlignment - used % kAlignment) % kAlignment;
        _rest.remove_prefix(std::min(padding, _rest.size()));
    }

    std::size_t Left() const { return _rest.size(); }
    std::string Rest() const { return std::string(_rest); }

private:
    std::string_view _rest;
};

Value TakeValue(Fields& fields, std::uint8_t type, std::size_t length) {
    Value value;
    value.type = type;
    switch (type) {
        case kInteger:
        case kCounter32:
        case kGauge32:
        case kTimeTicks:
        case kCounter64:
            if (length == sizeof value.number) {
                value.number = fields.Take<std::int64_t>();
                return value;
            }
            break;
        case kObjectId:
            value.id = fields.Numbers(length / sizeof(std::uint32_t));
            return value;
        default:
            break;
    }
    value.octets = fields.Text(length);
    return value;
}

Pdu TakePdu(std::string_view octets) {
    Fields fields(octets);
    const auto head = fields.Take<PduHead>();
    Pdu pdu;
    pdu.type = static_cast<std::uint8_t>(head.command);
    pdu.errorStatus = head.errorStatus;
    pdu.errorIndex = head.errorIndex;
    pdu.requestId = static_cast<std::int32_t>(head.requestId);
    for (std::uint32_t i = 0; i < head.count; ++i) {
        const auto binding = fields.Take<BindingHead>();
        Binding& taken = pdu.bindings.emplace_back();
        taken.name = fields.Numbers(binding.nameLength);
        taken.value = TakeValue(fields, static_cast<std::uint8_t>(binding.type), binding.valueLength);
        fields.Align(octets.size());
    }
    return pdu;
}

Call TakeCall(std::string_view octets) {
    Fields fields(octets);
    const auto head = fields.Take<CallHead>();
    Call call;
    call.outcome = head.outcome;
    call.microseconds = head.microseconds;
    call.serial = head.serial;
    call.sender = fields.Text(head.senderLength);
    call.service = fields.Text(head.serviceLength);
    call.operation = fields.Text(head.operationLength);
    call.arguments = fields.Text(head.argumentsLength);
    call.error = fields.Text(head.errorLength);
    return call;
}

RefusedName TakeRefused(std::string_view octets) {
    Fields fields(octets);
    RefusedName refused;
    refused.verdict = fields.Take<std::int32_t>();
    refused.name = fields.Numbers(fields.Take<std::uint32_t>());
    return refused;
}

Receiver TakeReceiver(std::string_view octets) {
    Fields fields(octets);
    Receiver receiver;
    receiver.isSent = fields.Take<std::int32_t>() != 0;
    receiver.peer = fields.Rest();
    return receiver;
}

void TakeSection(Section kind, std::string_view octets, Record& record) {
    switch (kind) {
        case Section::kPeer:
            record.peer = octets;
            break;
        case Section::kMessageIn:
            record.messageIn = octets;
            break;
        case Section::kMessageOut:
            record.messageOut = octets;
            break;
        case Section::kRequestPdu:
        case Section::kTrapPdu:
            record.pdu = TakePdu(octets);
            break;
        case Section::kAnswerPdu:
            record.answer = TakePdu(octets);
            break;
        case Section::kVerdict:
            record.verdict = Fields(octets).Take<std::int32_t>();
            break;
        case Section::kNameRefused:
            record.refused.push_back(TakeRefused(octets));
            break;
        case Section::kCall:
            record.calls.push_back(TakeCall(octets));
            break;
        case Section::kReceiver:
            record.receivers.push_back(TakeReceiver(octets));
            break;
        case Section::kTrapMessage:
            if (!record.receivers.empty()) record.receivers.back().message = octets;
            break;
        case Section::kContext:
            record.context = octets;
            break;
    }
}

void TakeSections(std::string_view octets, Record& record) {
    Fields fields(octets);
    while (fields.Left() >= sizeof(SectionHead)) {
        const auto head = fields.Take<SectionHead>();
        if (head.length > fields.Left()) return;
        const std::string_view contents = fields.Octets(head.length);
        try {
            TakeSection(static_cast<Section>(head.kind), contents, record);
        } catch (const Exception&) {
            record.isCut = true;
        }
        constexpr std::size_t kAlignment = 8;
        const std::size_t padding = (kAlignment - head.length % kAlignment) % kAlignment;
        fields.Octets(std::min(padding, fields.Left()));
    }
}

/// What the first receiver was sent whose message can be read. The agent gives each one an id of its own, and shows the
/// notification itself only the first time that it sends it.
void TakeSent(Record& record) {
    for (const Receiver& receiver : record.receivers) {
        const std::optional<Pdu> sent = DecodeMessage(receiver.message).pdu;
        if (!sent || sent->type == kTrapV1) continue;
        record.sentId = sent->requestId;
        if (!record.pdu) record.pdu = sent;
        return;
    }
}

}  // namespace

Record DecodeRecord(const std::vector<std::byte>& octets) {
    if (octets.size() < sizeof(RecordHead)) throw Exception("a record of the trace is too short");
    RecordHead head;
    std::memcpy(&head, octets.data(), sizeof head);
    Record record;
    record.kind = head.kind;
    record.number = head.number;
    record.time = head.time;
    record.microseconds = head.microseconds;
    record.cause = head.cause;
    record.isCut = (head.flags & kCut) != 0;
    record.isAnswered = (head.flags & kAnswered) != 0;
    record.isParsed = (head.flags & kParsed) != 0;
    record.isNotAwaited = (head.flags & kNotAwaited) != 0;
    const auto* const sections = reinterpret_cast<const char*>(octets.data()) + sizeof head;
    TakeSections({sections, octets.size() - sizeof head}, record);

    if (record.kind == RecordKind::kRequest) record.in = DecodeMessage(record.messageIn);
    if (!record.messageOut.empty()) record.out = DecodeMessage(record.messageOut);
    if (record.in.security && record.context.empty()) record.context = record.in.security->context;
    if (record.kind == RecordKind::kTrap) TakeSent(record);
    if (!record.pdu) record.pdu = record.in.pdu;
    if (!record.answer) record.answer = record.out.pdu;
    return record;
}

}  // namespace trace
