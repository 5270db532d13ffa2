#pragma once

#include <cstddef>

#include "trace/agent/NetSnmp.h"
#include "trace/agent/RecordBuilder.h"

namespace trace {

/// Adds what the PDU says: a PduHead and its bindings.
void AddPdu(RecordBuilder& record, Section kind, const netsnmp_pdu& pdu) noexcept;

/// Whether the PDU may have come from this message: they have the same id.
bool MayBeOf(const netsnmp_pdu& pdu, const std::byte* message, std::size_t length) noexcept;

/// True for a message that is encrypted on the wire: only the agent's PDU shows what it says.
bool IsEncrypted(const netsnmp_pdu& pdu) noexcept;

}  // namespace trace
