#pragma once

#include <string>
#include <vector>

namespace tavos::msgbus {
class IMsgBus;
class ServiceHost;
}  // namespace tavos::msgbus

namespace dome {

/// The desk camera's control service, org.tavos.dome.Control1: reads and changes the camera without its other
/// interfaces. Faults do not affect it, and its calls are not logged.
class IControl {
public:
    /// A client owned by the caller.
    static IControl* CreateClient(tavos::msgbus::IMsgBus* bus);

    virtual ~IControl() = default;

    /// Carries out one command, given as domectl's words. Returns two words: "ok" and the text to print; "error" and
    /// the reason, on one line; "unknown" and one line about a word that no command has there; or "more" and a number
    /// while the command still runs. Execute({"more", number}) then asks for its progress. Execute({"wait", axes...})
    /// does not wait: its text names those of the axes (of all, if none is named) that move, with blanks between.
    /// Throws tavos::osa::Exception when no camera answers.
    virtual std::vector<std::string> Execute(const std::vector<std::string>& words) = 0;
};

/// Serves it on the bus and returns its name, as tavos::interfaces::Serve does.
std::string Serve(tavos::msgbus::ServiceHost& host, IControl& service);

}  // namespace dome
