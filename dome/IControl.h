#pragma once

#include <string>
#include <vector>

namespace tavos::msgbus {
class IMsgBus;
class ServiceHost;
}  // namespace tavos::msgbus

namespace dome {

/// The desk camera's own service, org.tavos.dome.Control1: looks at the camera and steers it past its interfaces. It is
/// never under a fault and its calls are not logged.
class IControl {
public:
    /// A client owned by the caller.
    static IControl* CreateClient(tavos::msgbus::IMsgBus* bus);

    virtual ~IControl() = default;

    /// Carries out one command, its words as domectl takes them. The answer is two words: "ok" and what is to be
    /// printed, "error" and one line that tells why the command cannot be carried out, or "more" and a number: it goes
    /// on, and the command {"more", number} asks again how it stands. Throws tavos::osa::Exception when there is no
    /// camera that answers.
    virtual std::vector<std::string> Execute(const std::vector<std::string>& words) = 0;
};

/// Puts the service on the bus and returns its name, as tavos::interfaces::Serve does.
std::string Serve(tavos::msgbus::ServiceHost& host, IControl& service);

}  // namespace dome
