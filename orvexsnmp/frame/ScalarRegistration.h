#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/NetSnmp.h"
#include "objects/ScalarCount.h"

/// One scalar object of the module, with its OID including the instance.
struct ScalarRegistration {
    static constexpr std::size_t kNameRoom = 32;

    std::uint32_t oidLength;  ///< sub-identifiers, the instance included
    Netsnmp_Node_Handler* handler;
    char name[kNameRoom];             ///< the object's name, NUL-padded
    std::int32_t registrationResult;  ///< the agent's answer; 0 before
    const oid* objectId;
    std::uint8_t enabled;  ///< 1: registered, 0: left out
    std::int32_t access;   ///< HANDLER_CAN_RONLY or HANDLER_CAN_RWRITE
};

/// The table, in the order of registration and of objects.toml. ApplySensorAvailability and RegisterScalars write to
/// it.
std::array<ScalarRegistration, kScalarCount>& ScalarTable();

/// Enables or disables each sensor's row after a first reading. Agent's thread, once, after the providers exist.
void ApplySensorAvailability();

/// Registers the enabled rows in order. Returns 0; stops and returns -1 at the first row that the agent refuses.
int RegisterScalars();

/// Registers one object at exactly `objectId`. Returns the agent's answer, 0 for success, and remembers the
/// registration for UnregisterInstances. See docs/contract.md, registered-as-instances.
int RegisterInstance(const char* name, Netsnmp_Node_Handler* handler, const oid* objectId, std::size_t oidLength,
                     int access);

/// Removes every registration of RegisterInstance.
void UnregisterInstances();
