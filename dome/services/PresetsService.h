#pragma once

#include "tavos/interfaces/IPresetsProvider.h"

namespace dome {

/// Present on the bus; it has no operation yet.
class PresetsService final : public tavos::interfaces::IPresetsProvider {};

}  // namespace dome
