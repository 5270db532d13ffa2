#pragma once

#include <string>
#include <vector>

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// Alarm inputs in named banks, org.tavos.Alarm3. The inputs of each bank are numbered from 0.
class TAVOS_API IAlarmV3Provider {
public:
    /// A client owned by the caller.
    static IAlarmV3Provider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IAlarmV3Provider() = default;
    virtual std::vector<std::string> GetBankNames() = 0;
    virtual int GetBankAlarmCount(const std::string& bank) = 0;
    virtual int GetAlarmCount() = 0;                                     ///< of all banks together
    virtual bool GetAlarmState(const std::string& bank, int alarm) = 0;  ///< true: active
};

}  // namespace tavos::interfaces
