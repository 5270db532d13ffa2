#pragma once

#include <cstdint>

#include "core/NetSnmp.h"

/// The OIDs that the module serves or sends, and the text form of an OID. An array's length is its number of
/// sub-identifiers. The arrays of scalars include the instance.
class OrvexSnmpOid {
public:
    OrvexSnmpOid() = default;

    /// Allocates `count` sub-identifiers, but copies only the first `count` bytes of `source`.
    OrvexSnmpOid(const oid* source, std::int32_t count);
    ~OrvexSnmpOid();
    OrvexSnmpOid(const OrvexSnmpOid&) = delete;
    OrvexSnmpOid& operator=(const OrvexSnmpOid&) = delete;

    /// The OID as dotted text with a leading dot, at most 255 characters; empty for a length of 0 or less. If `*out` is
    /// null, mallocs length * 11 + 1 bytes and truncates the text to them; the caller frees them. Otherwise `*out` must
    /// have room for the whole text and its NUL; 256 bytes are always enough. Returns `*out`. Prints sub-identifiers as
    /// signed 32-bit numbers, at most 12 characters each with the dot.
    static char* OidString(const oid* name, std::int32_t length, char** out);

    // One oid_NAME for each object of objects.toml.
#include "objects/OrvexSnmpOid.inc"

    // The private tables, orvexEnterprise.1.3
    static const oid oid_alarm[10];
    static const oid oid_relay[10];

    static const oid oid_globalSetIDParameter[13];  ///< NTCIP 1201, not served (docs/contract.md, unused-set-id)

    /// snmpTrapOID.0 (RFC 3418), the first binding of every SNMPv2 trap.
    static const oid oid_snmpTrap[11];

private:
    oid* _name = nullptr;
    std::int32_t _length = 0;
};
