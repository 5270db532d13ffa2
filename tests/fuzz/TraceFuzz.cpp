#include <cstdint>
#include <sstream>

#include "Bytes.h"
#include "trace/Format.h"
#include "trace/reader/Json.h"
#include "trace/reader/Pcap.h"
#include "trace/reader/Plain.h"
#include "trace/reader/Story.h"

// The trace's reader: messages as they came from the wire, and records with sections of any kind and content.

namespace {

std::string Contents(Bytes& bytes) {
    const auto octets = bytes.Octets(bytes.Length());
    return {octets.begin(), octets.end()};
}

std::vector<std::byte> RecordOf(Bytes& bytes) {
    trace::RecordHead head{};
    head.kind = bytes.Below(4) == 0 ? trace::RecordKind::kTrap : trace::RecordKind::kRequest;
    head.number = bytes.Below(4);
    head.cause = bytes.Below(4);
    head.time = bytes.Take<std::int64_t>();
    head.flags = bytes.Byte();
    std::string sections;
    while (!bytes.IsEmpty()) {
        const std::uint32_t kind = bytes.Below(13);
        const std::string contents = Contents(bytes);
        const trace::SectionHead section{kind, static_cast<std::uint32_t>(contents.size() + (bytes.Below(16) == 0))};
        sections.append(reinterpret_cast<const char*>(&section), sizeof section);
        sections += contents;
        sections.resize((sections.size() + 7) / 8 * 8);
    }
    std::vector<std::byte> record(sizeof head + sections.size());
    std::memcpy(record.data(), &head, sizeof head);
    if (!sections.empty()) std::memcpy(record.data() + sizeof head, sections.data(), sections.size());
    return record;
}

void Show(trace::Record record) {
    std::ostringstream file;
    trace::PcapWriter(file).Write(record);
    trace::Story story(trace::Communities(trace::AgentConfiguration::OfText("com2sec reader default public\n")));
    story.AddRecord(std::move(record));
    story.ForgetAgent();
    for (const auto& entry : story.Take()) {
        MUST(trace::Line(entry.json).find('\n') == std::string::npos, "%s", "an object takes more than a line");
        std::istringstream lines(trace::PlainLines(entry.json, trace::Details::kAll));
        for (std::string line; std::getline(lines, line);) {
            MUST(line.find('\x1b') == std::string::npos, "%s", line.c_str());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    if (bytes.Below(2) == 0) {
        Show(trace::DecodeRecord(RecordOf(bytes)));
        return 0;
    }
    trace::Record record;
    record.isAnswered = bytes.Below(2) == 1;
    record.isParsed = record.isAnswered;
    record.messageIn = bytes.Rest();
    record.in = trace::DecodeMessage(record.messageIn);
    record.pdu = record.in.pdu;
    if (record.isAnswered) record.answer = record.pdu;
    Show(std::move(record));
    return 0;
}
