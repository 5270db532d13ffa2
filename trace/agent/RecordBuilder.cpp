#include "trace/agent/RecordBuilder.h"

#include <cstring>

namespace trace {

void RecordBuilder::Begin(RecordKind kind, std::int64_t time) noexcept {
    RecordHead head{};
    head.kind = kind;
    head.time = time;
    std::memcpy(_data, &head, sizeof head);
    _length = sizeof head;
    _open = true;
}

void RecordBuilder::Load(const std::byte* record, std::size_t length) noexcept {
    std::memcpy(_data, record, length);
    _length = length;
    _open = true;
}

std::byte* RecordBuilder::Finish() noexcept {
    Head().length = static_cast<std::uint32_t>(_length);
    _open = false;
    return _data;
}

void RecordBuilder::Add(Section kind, const void* contents, std::size_t length) noexcept {
    Open(kind);
    Put(contents, length);
    Close();
}

void RecordBuilder::Open(Section kind) noexcept {
    _section = _length;
    _fits = true;
    const SectionHead head{static_cast<std::uint32_t>(kind), 0};
    Put(&head, sizeof head);
}

void RecordBuilder::Put(const void* octets, std::size_t length) noexcept {
    _fits = _fits && length <= kMaxRecord - _length;
    if (!_fits || length == 0) return;
    std::memcpy(_data + _length, octets, length);
    _length += length;
}

void RecordBuilder::Pad(std::size_t multiple) noexcept {
    static constexpr std::byte kZeros[8]{};
    const std::size_t past = (_length - _section) % multiple;
    if (past != 0) Put(kZeros, multiple - past);
}

void RecordBuilder::Close() noexcept {
    const std::size_t contents = _length - _section - sizeof(SectionHead);
    Pad(8);
    if (!_fits) {
        _length = _section;
        Head().flags |= kCut;
        return;
    }
    const auto length = static_cast<std::uint32_t>(contents);
    std::memcpy(_data + _section + offsetof(SectionHead, length), &length, sizeof length);
}

}  // namespace trace
