#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tavos::msgbus {
class MsgBus;
}

namespace dome {

class IControl;

/// domectl's connection to the camera of a state folder. One thread.
class ControlLink {
public:
    /// `state` is the camera's folder, `bus` its bus's address; empty: the one in the folder. Throws
    /// tavos::osa::Exception when there is no such folder or no bus.
    ControlLink(std::string state, const std::string& bus);
    ~ControlLink();
    ControlLink(const ControlLink&) = delete;
    ControlLink& operator=(const ControlLink&) = delete;

    /// The camera's answer, two words as IControl::Execute describes them, but not "more". Throws
    /// tavos::osa::Exception when there is none.
    std::vector<std::string> Ask(const std::vector<std::string>& words);

private:
    std::string _state;
    std::unique_ptr<tavos::msgbus::MsgBus> _connection;
    std::unique_ptr<IControl> _control;
};

}  // namespace dome
