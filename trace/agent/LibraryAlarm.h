#pragma once

#include "trace/agent/NetSnmp.h"

namespace trace {

/// Registers `callback` with the agent's library, once: with the next turn of its loop if `now`, otherwise after a
/// second. Returns its number; 0 without memory.
unsigned int RegisterAlarm(bool now, SNMPAlarmCallback* callback) noexcept;

}  // namespace trace
