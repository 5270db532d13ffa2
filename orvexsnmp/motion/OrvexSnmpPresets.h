#pragma once

#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IPresetsProvider.h"
#include "tavos/interfaces/IPresetsV2Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The NTCIP 1205 preset objects. A SET moves nothing and stores nothing. Agent's thread only.
class OrvexSnmpPresets final : public OrvexSnmpBaseProvider<OrvexSnmpPresets> {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpPresets(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpPresets() override;

    /// The camera's number of presets. Returns 0, or -1 if the call failed; then `count` stays unchanged.
    int GetMaxPresets(unsigned int& count) const;

    // The handlers of its objects.
#include "objects/OrvexSnmpPresets.inc"

private:
    // Fixed: docs/contract.md, unused-clients.
    std::unique_ptr<tavos::interfaces::IPresetsProvider> _client;
    std::unique_ptr<tavos::interfaces::IPresetsV2Provider> _clientV2;
};
