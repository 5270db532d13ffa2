#include "ControlLink.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <thread>
#include <utility>

#include "dome/IControl.h"
#include "dome/StateFolder.h"
#include "tavos/core/Logger.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/osa/Exception.h"

namespace dome {

using Words = std::vector<std::string>;

ControlLink::ControlLink(std::string state, const std::string& bus) : _state(std::move(state)) {
    const std::string address = BusAddress(_state);
    setenv("TAVOS_BUS_ADDRESS", bus.empty() ? address.c_str() : bus.c_str(), 1);
    setenv("TAVOS_CALL_TIMEOUT_MS", "10000", 1);  // a full call log takes long to send
    tavos::core::Logger::ClearAppenders();        // standard output is for the answer
    _connection = std::make_unique<tavos::msgbus::MsgBus>();
    _control.reset(IControl::CreateClient(_connection.get()));
}

ControlLink::~ControlLink() = default;

Words ControlLink::Ask(const Words& words) {
    try {
        Words answer = _control->Execute(words);
        while (answer.size() == 2 && answer[0] == "more") {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            answer = _control->Execute(answer);
        }
        if (answer.size() != 2) throw tavos::osa::Exception("the answer has %zu words, not 2", answer.size());
        return answer;
    } catch (const std::exception& error) {
        throw tavos::osa::Exception("no answer from the camera in %s: %s", _state.c_str(), error.what());
    }
}

}  // namespace dome
