#pragma once

#include "tavos/msgbus/CallObserver.h"

namespace trace {

/// Observes the calls of the platform's library, if the process has loaded it and it can be observed. Returns whether
/// it does. nullptr ends it.
bool TapCalls(tavos::msgbus::CallObserver observer) noexcept;

}  // namespace trace
