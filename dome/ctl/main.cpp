// domectl: look at the desk camera and steer it from a shell.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "dome/IControl.h"
#include "dome/StateFolder.h"
#include "tavos/core/Logger.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/osa/Exception.h"

namespace {

constexpr const char* kUsage = R"(usage: domectl --state DIR [--bus ADDRESS] COMMAND

  state                                  the whole camera, as JSON
  calls [--clear]                        the service calls received, the last 20000 at most, one JSON object a line;
                                         --clear then empties the log
  set pan|tilt POSITION                  thousandths of a degree
  set zoom|zoom-max MAGNIFICATION        thousandths
  set focus|iris|light PERCENT           light: what the automatic iris follows
  set auto-focus|auto-iris 0|1
  set presets COUNT
  set temperature [SENSOR] DEGREES       sensor 0 unless given
  set voltage|power STATUS
  set alarm|relay BANK NUMBER 0|1
  banks alarm|relay NAME=COUNT...        replaces all banks
  banks alarm|relay none                 removes all banks
  clock pause|run                        stops the camera's time; lets it go on
  clock step SECONDS                     advances it at once by that time
  clock rate X                           0.01 to 100 of the camera's seconds a second
  event temperature SENSOR DEGREES [--count N]
  event voltage|power STATUS [--count N] emits the event without a change of the reading; N of them, counting up
  fault SERVICE ok|fail|hang|gone        pan tilt zoom focus focus2 iris presets presets2 alarm relay
                                         temperature voltage power fan
)";

using tavos::osa::Exception;
using Words = std::vector<std::string>;

struct Command {
    const char* name;
    std::size_t min;  // words after the name
    std::size_t max;
};

constexpr std::size_t kAnyNumber = 1000;
constexpr Command kCommands[] = {
    {"state", 0, 0},          {"calls", 0, 1}, {"set", 2, 4},   {"fault", 2, 2},
    {"banks", 2, kAnyNumber}, {"event", 2, 5}, {"clock", 1, 2},
};

bool IsCommand(const Words& words) {
    for (const Command& command : kCommands) {
        if (words.empty() || words[0] != command.name) continue;
        return words.size() - 1 >= command.min && words.size() - 1 <= command.max;
    }
    return false;
}

struct Invocation {
    std::string state;
    std::string bus;
    Words words;
};

bool Parse(int argc, char** argv, Invocation& invocation) {
    int i = 1;
    for (; i + 1 < argc && argv[i][0] == '-'; i += 2) {
        const std::string option = argv[i];
        if (option != "--state" && option != "--bus") return false;
        (option == "--state" ? invocation.state : invocation.bus) = argv[i + 1];
    }
    invocation.words.assign(argv + i, argv + argc);
    return !invocation.state.empty() && IsCommand(invocation.words);
}

std::string Execute(const Invocation& invocation) {
    const std::string address = dome::BusAddress(invocation.state);
    setenv("TAVOS_BUS_ADDRESS", invocation.bus.empty() ? address.c_str() : invocation.bus.c_str(), 1);
    setenv("TAVOS_CALL_TIMEOUT_MS", "10000", 1);  // a full call log takes long to send
    tavos::core::Logger::ClearAppenders();        // standard output is for the answer
    tavos::msgbus::MsgBus bus;
    const std::unique_ptr<dome::IControl> control(dome::IControl::CreateClient(&bus));
    Words answer;
    try {
        answer = control->Execute(invocation.words);
        while (answer.size() == 2 && answer[0] == "more") {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            answer = control->Execute(answer);
        }
    } catch (const std::exception& error) {
        throw Exception("no answer from the camera in %s: %s", invocation.state.c_str(), error.what());
    }
    if (answer.size() != 2 || answer[0] != "ok") throw Exception("%s", answer.empty() ? "" : answer.back().c_str());
    return answer[1];
}

}  // namespace

int main(int argc, char** argv) {
    Invocation invocation;
    if (!Parse(argc, argv, invocation)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    try {
        const std::string output = Execute(invocation);
        const bool written = std::fwrite(output.data(), 1, output.size(), stdout) == output.size();
        if (!written || std::fflush(stdout) != 0) throw Exception("standard output cannot be written");
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "domectl: %s\n", error.what());
        return 1;
    }
}
