#include "trace/reader/Pcap.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "trace/reader/Peer.h"

namespace trace {

namespace {

constexpr std::uint32_t kPcapMagic = 0xa1b2c3d4;  // times in microseconds, numbers in this machine's order
constexpr std::uint32_t kMaxPacket = 262144;
constexpr std::uint32_t kRawIp = 101;  // LINKTYPE_RAW
constexpr std::uint8_t kUdp = 17;
constexpr std::size_t kUdpHead = 8;
constexpr std::size_t kIp4Head = 20;
constexpr std::size_t kMaxDatagram = 65535 - kIp4Head - kUdpHead;

template <class Number>
void PutRaw(std::string& octets, Number number) {
    octets.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void Put8(std::string& octets, unsigned number) {
    octets.push_back(static_cast<char>(number));
}

/// In the network's order.
void Put16(std::string& octets, std::size_t number) {
    Put8(octets, static_cast<unsigned>(number >> 8 & 0xff));
    Put8(octets, static_cast<unsigned>(number & 0xff));
}

struct End {
    std::string address;  // 4 or 16 octets
    std::uint16_t port;
};

/// 4 octets, or 16 of an IPv6 address, without its zone; empty for a text that is none.
std::string AddressOctets(const std::string& zoned) {
    const std::string text = zoned.substr(0, zoned.find('%'));
    std::array<char, 16> octets{};
    if (inet_pton(AF_INET, text.c_str(), octets.data()) == 1) return {octets.data(), 4};
    if (inet_pton(AF_INET6, text.c_str(), octets.data()) == 1) return {octets.data(), 16};
    return "";
}

/// RFC 1071, over an even or odd number of octets.
std::uint16_t Checksum(std::string_view octets) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < octets.size(); ++i) {
        const auto octet = static_cast<std::uint8_t>(octets[i]);
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(octet << 8) : octet;
    }
    while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<std::uint16_t>(~sum);
}

void Replace16(std::string& octets, std::size_t place, std::uint16_t number) {
    octets[place] = static_cast<char>(number >> 8);
    octets[place + 1] = static_cast<char>(number & 0xff);
}

std::string UdpDatagram(const End& from, const End& to, std::string_view message) {
    std::string datagram;
    Put16(datagram, from.port);
    Put16(datagram, to.port);
    Put16(datagram, kUdpHead + message.size());
    Put16(datagram, 0);
    datagram += message;
    std::string pseudo = from.address + to.address;
    Put16(pseudo, kUdp);
    Put16(pseudo, datagram.size());
    const std::uint16_t sum = Checksum(pseudo + datagram);
    Replace16(datagram, 6, sum == 0 ? 0xffff : sum);
    return datagram;
}

std::string Ip4Packet(const End& from, const End& to, const std::string& datagram) {
    std::string packet = {0x45, 0};
    Put16(packet, kIp4Head + datagram.size());
    packet.append(4, '\0');
    Put8(packet, 64);
    Put8(packet, kUdp);
    Put16(packet, 0);
    packet += from.address + to.address;
    Replace16(packet, 10, Checksum(packet));
    return packet + datagram;
}

std::string Ip6Packet(const End& from, const End& to, const std::string& datagram) {
    std::string packet = {0x60, 0, 0, 0};
    Put16(packet, datagram.size());
    Put8(packet, kUdp);
    Put8(packet, 64);
    return packet + from.address + to.address + datagram;
}

/// An end that is not known has the address 0.
std::string Packet(End from, End to, std::string_view message) {
    message = message.substr(0, kMaxDatagram);
    const std::size_t length = std::max({from.address.size(), to.address.size(), std::size_t{4}});
    from.address.resize(length);
    to.address.resize(length);
    const std::string datagram = UdpDatagram(from, to, message);
    return length == 4 ? Ip4Packet(from, to, datagram) : Ip6Packet(from, to, datagram);
}

}  // namespace

PcapWriter::PcapWriter(std::ostream& file) : _file(file) {
    std::string head;
    PutRaw(head, kPcapMagic);
    PutRaw(head, std::uint16_t{2});  // the format's version, 2.4
    PutRaw(head, std::uint16_t{4});
    PutRaw(head, std::uint64_t{0});  // times are UTC
    PutRaw(head, kMaxPacket);
    PutRaw(head, kRawIp);
    _file << head;
}

void PcapWriter::WritePacket(std::int64_t time, const std::string& datagram) {
    constexpr std::int64_t kSecond = 1000000000;
    std::string packet;
    PutRaw(packet, static_cast<std::uint32_t>(time / kSecond));
    PutRaw(packet, static_cast<std::uint32_t>(time % kSecond / 1000));
    PutRaw(packet, static_cast<std::uint32_t>(datagram.size()));
    PutRaw(packet, static_cast<std::uint32_t>(datagram.size()));
    _file << packet << datagram;
}

void PcapWriter::Write(const Record& record) {
    const Peer peer = ParsePeer(record.peer);
    const End manager{AddressOctets(peer.address), peer.port};
    const End agent{AddressOctets(peer.ownAddress), peer.ownPort};
    const std::int64_t answered = record.time + record.microseconds * 1000;
    if (!record.messageIn.empty()) WritePacket(record.time, Packet(manager, agent, record.messageIn));
    if (!record.messageOut.empty() && record.isAnswered)
        WritePacket(answered, Packet(agent, manager, record.messageOut));
    for (const Receiver& receiver : record.receivers) {
        if (receiver.message.empty() || !receiver.isSent) continue;
        const Peer to = ParsePeer(receiver.peer);
        WritePacket(record.time, Packet({AddressOctets(to.ownAddress), to.ownPort},
                                        {AddressOctets(to.address), to.port}, receiver.message));
    }
}

}  // namespace trace
