#pragma once

#include <cstdint>
#include <string>

namespace tavos::msgbus {
class IMsgBus;
class ServiceHost;
}  // namespace tavos::msgbus

namespace test {

/// A service with the pan axis's name but other types.
class IOtherPan {
public:
    static IOtherPan* CreateClient(tavos::msgbus::IMsgBus* bus);

    virtual ~IOtherPan() = default;
    virtual std::string GetPosition() = 0;
    virtual std::int32_t GetMinPosition() = 0;
    virtual void GetMaxPosition() = 0;
    virtual void SetPosition(const std::string& position) = 0;
};

std::string Serve(tavos::msgbus::ServiceHost& host, IOtherPan& service);

}  // namespace test
