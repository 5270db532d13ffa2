#pragma once

#include <ostream>

#include "trace/reader/Record.h"

namespace trace {

/// Writes messages as a packet capture (pcap, IP packets without a link layer): requests, answers and notifications as
/// they were on the wire, in UDP datagrams between the addresses that are known. A message over TCP looks like UDP,
/// too.
class PcapWriter {
public:
    /// Writes the file's head. The stream must outlive the writer; check it for errors.
    explicit PcapWriter(std::ostream& file);

    void Write(const Record& record);

private:
    void WritePacket(std::int64_t time, const std::string& datagram);

    std::ostream& _file;
};

}  // namespace trace
