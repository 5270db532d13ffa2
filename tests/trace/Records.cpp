#include "Records.h"

#include <cstring>
#include <sstream>

std::string Octets(const std::string& hexadecimal) {
    std::istringstream words(hexadecimal);
    std::string octets;
    for (std::string word; words >> word;) octets.push_back(static_cast<char>(std::stoi(word, nullptr, 16)));
    return octets;
}

std::string Element(int tag, const std::string& contents) {
    std::string element(1, static_cast<char>(tag));
    if (contents.size() > 127) element += static_cast<char>(0x82), element += static_cast<char>(contents.size() >> 8);
    element += static_cast<char>(contents.size() & 0xff);
    return element + contents;
}

std::string Integer(int number) {
    return Element(0x02, number < 128 ? std::string(1, static_cast<char>(number))
                                      : std::string{static_cast<char>(number >> 8), static_cast<char>(number)});
}

std::string PositionBinding(int last, const std::string& value) {
    const std::string name = Octets("2b 06 01 04 01 89 36 04 02 07 04") + static_cast<char>(last) + '\0';
    return Element(0x30, Element(0x06, name) + Element(0x04, value));
}

std::string Message2c(const std::string& community, int pdu, const std::string& bindings, int error, int index) {
    const std::string fields = Integer(5) + Integer(error) + Integer(index) + Element(0x30, bindings);
    return Element(0x30, Integer(1) + Element(0x04, community) + Element(pdu, fields));
}

RingRecord::RingRecord(trace::RecordKind kind) {
    _head.kind = kind;
    _head.number = 1;
    _head.time = 1'700'000'000'123'456'789;
    _head.microseconds = 250;
}

RingRecord& RingRecord::Flags(std::uint32_t flags) {
    _head.flags = flags;
    return *this;
}

RingRecord& RingRecord::Number(std::uint64_t number) {
    _head.number = number;
    return *this;
}

RingRecord& RingRecord::Add(trace::Section kind, const std::string& contents) {
    const trace::SectionHead head{static_cast<std::uint32_t>(kind), static_cast<std::uint32_t>(contents.size())};
    _sections.append(reinterpret_cast<const char*>(&head), sizeof head);
    _sections += contents;
    _sections.resize((_sections.size() + 7) / 8 * 8);
    return *this;
}

RingRecord& RingRecord::AddVerdict(std::int32_t verdict) {
    return Add(trace::Section::kVerdict, {reinterpret_cast<const char*>(&verdict), sizeof verdict});
}

RingRecord& RingRecord::AddCall(trace::CallOutcome outcome, const std::string& service, const std::string& operation,
                                const std::string& arguments, const std::string& error, std::uint64_t serial) {
    const std::string sender = ":1.5";
    trace::CallHead head{};
    head.outcome = outcome;
    head.microseconds = 321;
    head.serial = serial;
    head.senderLength = static_cast<std::uint16_t>(sender.size());
    head.serviceLength = static_cast<std::uint16_t>(service.size());
    head.operationLength = static_cast<std::uint16_t>(operation.size());
    head.errorLength = static_cast<std::uint16_t>(error.size());
    head.argumentsLength = static_cast<std::uint32_t>(arguments.size());
    const std::string texts = sender + service + operation + arguments + error;
    return Add(trace::Section::kCall, std::string(reinterpret_cast<const char*>(&head), sizeof head) + texts);
}

std::vector<std::byte> RingRecord::Raw() const {
    trace::RecordHead head = _head;
    head.length = static_cast<std::uint32_t>(sizeof head + _sections.size());
    std::vector<std::byte> record(head.length);
    std::memcpy(record.data(), &head, sizeof head);
    if (!_sections.empty()) std::memcpy(record.data() + sizeof head, _sections.data(), _sections.size());
    return record;
}
