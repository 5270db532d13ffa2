#pragma once

#include "trace/agent/NetSnmp.h"
#include "trace/agent/RecordBuilder.h"

namespace trace {

/// Adds what the PDU says: a PduHead and its bindings.
void AddPdu(RecordBuilder& record, Section kind, const netsnmp_pdu& pdu) noexcept;

/// True for a message that is encrypted on the wire: only the agent's PDU shows what it says.
bool IsEncrypted(const netsnmp_pdu& pdu) noexcept;

}  // namespace trace
