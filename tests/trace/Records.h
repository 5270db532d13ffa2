#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "trace/Format.h"
#include "trace/reader/Record.h"

/// Octets from a text: "30 03 02 01 00".
std::string Octets(const std::string& hexadecimal);

/// One element of BER.
std::string Element(int tag, const std::string& contents);

std::string Integer(int number);

/// A binding with the name 1.3.6.1.4.1.1206.4.2.7.4.`last`.0, a position object.
std::string PositionBinding(int last, const std::string& value);

/// A version 2c message.
std::string Message2c(const std::string& community, int pdu, const std::string& bindings, int error = 0, int index = 0);

/// A ring's record as the agent writes it.
class RingRecord {
public:
    explicit RingRecord(trace::RecordKind kind = trace::RecordKind::kRequest);
    RingRecord& Flags(std::uint32_t flags);
    RingRecord& Number(std::uint64_t number);
    RingRecord& Add(trace::Section kind, const std::string& contents);
    RingRecord& AddVerdict(std::int32_t verdict);
    RingRecord& AddCall(trace::CallOutcome outcome, const std::string& service, const std::string& operation,
                        const std::string& arguments, const std::string& error, std::uint64_t serial = 7);
    std::vector<std::byte> Raw() const;
    trace::Record Decoded() const { return trace::DecodeRecord(Raw()); }

private:
    trace::RecordHead _head{};
    std::string _sections;
};
