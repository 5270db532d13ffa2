#pragma once

#include <string>
#include <vector>

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// Relay outputs in named banks, org.tavos.Relay3. The relays of each bank are numbered from 0.
class TAVOS_API IRelayV3Provider {
public:
    /// A client owned by the caller.
    static IRelayV3Provider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IRelayV3Provider() = default;
    virtual std::vector<std::string> GetBankNames() = 0;
    virtual int GetBankRelayCount(const std::string& bank) = 0;
    virtual int GetRelayCount() = 0;                                             ///< of all banks together
    virtual bool GetRelayState(const std::string& bank, int relay) = 0;          ///< true: energised
    virtual void ClearRelay(const std::string& bank, int relay, int value) = 0;  ///< releases; `value` is ignored
    virtual void SetRelay(const std::string& bank, int relay, int value) = 0;    ///< energises, for any value but 0
};

}  // namespace tavos::interfaces
