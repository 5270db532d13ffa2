#pragma once

#include "tavos/interfaces/IPresetsProvider.h"

namespace dome {

/// Has a name on the bus, but no operation yet.
class PresetsService final : public tavos::interfaces::IPresetsProvider {};

}  // namespace dome
