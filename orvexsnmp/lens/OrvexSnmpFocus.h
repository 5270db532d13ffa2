#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IFocusProvider.h"
#include "tavos/interfaces/IFocusV2Provider.h"
#include "tavos/interfaces/IIrisProvider.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/settings/TavosSettingsClient.h"

struct PositionCommand;

/// The NTCIP 1205 focus objects and the lens features auto focus and auto iris. Agent's thread only.
/// NTCIP focus positions: 0 to 65535 for 0.0 to 100.0 percent.
class OrvexSnmpFocus final : public OrvexSnmpBaseProvider<OrvexSnmpFocus> {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpFocus(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpFocus() override;

    // Fixed: docs/contract.md, unused-operations.
    // The services' operations. Return 0, or -1 if the call failed; set outputs on success only.
    int SetAutoIrisEnabled(bool enabled) const;
    int GetAutoIrisEnabled(bool& enabled) const;
    int SetAutoFocusEnabled(bool enabled) const;   ///< on the focus service and in the settings store
    int GetAutoFocusEnabled(bool& enabled) const;  ///< from the settings store
    int MoveFocus(int direction) const;            ///< -1 near, 0 stop, +1 far
    int AutoFocus(bool start) const;
    int GetMinPosition(double& position) const;  ///< percent, as the next six
    int GetMaxPosition(double& position) const;
    int GetMinTranslation(double& translation) const;
    int GetMaxTranslation(double& translation) const;
    int GetPosition(double& position) const;
    int SetPosition(double position) const;
    int RelativeFocus(double translation) const;

    /// See ScaleLinearly.
    int ScaleValues(std::uint32_t value, std::uint32_t inMin, std::uint32_t inMax, std::uint32_t outMin,
                    std::uint32_t outMax) const;

    // The handlers of its objects.
#include "objects/OrvexSnmpFocus.inc"

private:
    int Commit(const PositionCommand& command, double current) const;
    int CommitContinuous(const PositionCommand& command) const;
    void ApplyFeatureControl() const;

    std::unique_ptr<tavos::interfaces::IFocusProvider> _client;
    std::unique_ptr<tavos::interfaces::IFocusV2Provider> _clientV2;
    std::unique_ptr<tavos::interfaces::IIrisProvider> _irisClient;
    std::uint32_t _lastFocus = 0;
    std::array<std::uint8_t, 2> _lastControl{};
    std::uint8_t _equipped;
    /// Mutable: const wrappers change the settings store.
    mutable tavos::settings::TavosSettingsClient _settings;
};
