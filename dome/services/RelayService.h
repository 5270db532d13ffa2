#pragma once

#include "Arguments.h"
#include "dome/model/Banks.h"
#include "tavos/interfaces/IRelayV3Provider.h"

namespace dome {

class RelayService final : public tavos::interfaces::IRelayV3Provider {
public:
    explicit RelayService(Banks& banks) : _banks(banks) {}

    std::vector<std::string> GetBankNames() override { return _banks.Names(); }

    int GetBankRelayCount(const std::string& bank) override {
        return Refusable([&] { return _banks.Count(bank); });
    }

    int GetRelayCount() override { return _banks.Total(); }

    bool GetRelayState(const std::string& bank, int relay) override {
        return Refusable([&] { return _banks.State(bank, relay); });
    }

    void ClearRelay(const std::string& bank, int relay, int /*value*/) override { Switch(bank, relay, false); }

    /// The value 0 has no effect.
    void SetRelay(const std::string& bank, int relay, int value) override {
        Switch(bank, relay, value != 0 || GetRelayState(bank, relay));
    }

private:
    void Switch(const std::string& bank, int relay, bool energised) {
        Refusable([&] { _banks.Set(bank, relay, energised); });
    }

    Banks& _banks;
};

}  // namespace dome
