#include "trace/agent/StreamOctets.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "trace/Format.h"

namespace trace {

namespace {

constexpr std::uint8_t kSequence = 0x30;
constexpr std::uint8_t kLongForm = 0x80;

/// The length of the message that begins here; 0 when more octets are required to know it. As the library reckons it.
std::size_t MessageLength(const std::byte* octets, std::size_t length) noexcept {
    constexpr std::size_t kShortHead = 2;
    if (length == 0) return 0;
    if (std::to_integer<std::uint8_t>(octets[0]) != kSequence) return length;
    if (length < kShortHead) return 0;
    const auto first = std::to_integer<std::uint8_t>(octets[1]);
    if ((first & kLongForm) == 0) return kShortHead + first;
    const std::size_t count = first & ~kLongForm;
    if (count == 0 || count > sizeof(std::uint32_t)) return length;
    if (length < kShortHead + count) return 0;
    std::size_t contents = 0;
    for (std::size_t i = 0; i < count; ++i) contents = contents << 8 | std::to_integer<std::uint8_t>(octets[2 + i]);
    // The agent ends a connection whose message is too long for it.
    return contents > kMaxRecord ? length : kShortHead + count + contents;
}

}  // namespace

StreamOctets::Connection* StreamOctets::Find(const netsnmp_transport* transport) noexcept {
    const auto isIt = [transport](const Connection& connection) { return connection.transport == transport; };
    auto* const found = std::find_if(std::begin(_connections), std::end(_connections), isIt);
    return found != std::end(_connections) ? found : nullptr;
}

void StreamOctets::Empty(Connection& connection) noexcept {
    std::free(connection.octets);
    connection = {};
}

bool StreamOctets::Add(const netsnmp_transport& connection, const void* octets, std::size_t length) noexcept {
    _current = Find(&connection);
    if (_current == nullptr) {
        const auto isOlder = [](const Connection& left, const Connection& right) { return left.used < right.used; };
        _current = std::min_element(std::begin(_connections), std::end(_connections), isOlder);
        Empty(*_current);
        _current->transport = &connection;
    }
    _current->used = ++_uses;
    const std::size_t kept = _current->length - _current->taken;
    auto* const room = kept + length <= 2 * std::size_t{kMaxRecord}
                           ? static_cast<std::byte*>(std::malloc(std::max<std::size_t>(kept + length, 1)))
                           : nullptr;
    if (room == nullptr) {
        Empty(*_current);
        return false;
    }
    if (kept > 0) std::memcpy(room, _current->octets + _current->taken, kept);
    std::memcpy(room + kept, octets, length);
    std::free(_current->octets);
    _current->octets = room;
    _current->taken = 0;
    _current->length = kept + length;
    return true;
}

bool StreamOctets::HasNext() const noexcept {
    if (_current == nullptr || _current->octets == nullptr) return false;
    const std::size_t left = _current->length - _current->taken;
    const std::size_t length = MessageLength(_current->octets + _current->taken, left);
    return length != 0 && length <= left;
}

StreamOctets::Octets StreamOctets::Next() noexcept {
    if (!HasNext()) return {};
    const std::byte* const start = _current->octets + _current->taken;
    const std::size_t length = MessageLength(start, _current->length - _current->taken);
    _current->taken += length;
    return {start, length};
}

StreamOctets::Octets StreamOctets::TakeRest(const netsnmp_transport& connection) noexcept {
    _current = Find(&connection);
    if (_current == nullptr || _current->octets == nullptr) return {};
    const std::size_t left = _current->length - _current->taken;
    const Octets rest{_current->octets + _current->taken, left};
    _current->taken = _current->length;
    _current->transport = nullptr;  // another connection may come to lie there
    _current->used = 0;
    return rest;
}

void StreamOctets::Forget() noexcept {
    for (Connection& connection : _connections) Empty(connection);
    _current = nullptr;
}

}  // namespace trace
