#pragma once

#include "Arguments.h"
#include "dome/model/Banks.h"
#include "tavos/interfaces/IAlarmV3Provider.h"

namespace dome {

class AlarmService final : public tavos::interfaces::IAlarmV3Provider {
public:
    explicit AlarmService(const Banks& banks) : _banks(banks) {}

    std::vector<std::string> GetBankNames() override { return _banks.Names(); }

    int GetBankAlarmCount(const std::string& bank) override {
        return Refusable([&] { return _banks.Count(bank); });
    }

    int GetAlarmCount() override { return _banks.Total(); }

    bool GetAlarmState(const std::string& bank, int alarm) override {
        return Refusable([&] { return _banks.State(bank, alarm); });
    }

private:
    const Banks& _banks;
};

}  // namespace dome
