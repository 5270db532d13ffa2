// domectl: look at the desk camera and steer it from a shell.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Trace.h"
#include "dome/Faults.h"
#include "dome/IControl.h"
#include "dome/StateFolder.h"
#include "tavos/core/CommandLine.h"
#include "tavos/core/Logger.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/osa/Exception.h"

namespace {

using tavos::core::CommandLine;
using tavos::osa::Exception;
using Words = std::vector<std::string>;

void AddCommands(CommandLine& line) {
    constexpr std::size_t kAnyNumber = 1000;
    line.AddCommand("state", 0, 0, R"(
  state                                  the whole camera, as JSON)");
    line.AddCommand("calls", 0, 1, R"(
  calls [--clear]                        the service calls received, the last 20000 at most, one JSON object a line;
                                         --clear then empties the log)");
    line.AddCommand("history", 0, 2, R"(
  history [--since N]                    calls, motions, actions and events, in order, one JSON object a line; from the
                                         oldest on, or after the change N)");
    line.AddCommand("trace", 0, kAnyNumber, dome::kTraceUsage);
    line.AddCommand("set", 2, 4, R"(
  set pan|tilt POSITION                  thousandths of a degree
  set zoom|zoom-max MAGNIFICATION        thousandths
  set focus|iris|light PERCENT           light: what the automatic iris follows
  set auto-focus|auto-iris 0|1
  set presets COUNT
  set temperature [SENSOR] DEGREES       sensor 0 unless given
  set voltage|power STATUS
  set alarm|relay BANK NUMBER 0|1)");
    line.AddCommand("banks", 2, kAnyNumber, R"(
  banks alarm|relay NAME=COUNT...        replaces all banks
  banks alarm|relay none                 removes all banks)");
    line.AddCommand("clock", 1, 2, R"(
  clock pause|run                        stops the camera's time; lets it go on
  clock step SECONDS                     advances it at once by that time
  clock rate X                           0.01 to 100 of the camera's seconds a second)");
    line.AddCommand("event", 2, 5, R"(
  event temperature SENSOR DEGREES [--count N]
  event voltage|power STATUS [--count N] emits the event without a change of the reading; N of them, counting up)");
    line.AddCommand("fault", 2, 2,
                    "\n  fault SERVICE " + dome::FaultNames("|") +
                        R"(        pan tilt zoom focus focus2 iris presets presets2 alarm relay
                                         temperature voltage power fan)");
}

/// The camera's answer, as dome::IControl::Execute describes it, but not "more".
Words Ask(const std::string& state, const std::string& bus, const Words& words) {
    const std::string address = dome::BusAddress(state);
    setenv("TAVOS_BUS_ADDRESS", bus.empty() ? address.c_str() : bus.c_str(), 1);
    setenv("TAVOS_CALL_TIMEOUT_MS", "10000", 1);  // a full call log takes long to send
    tavos::core::Logger::ClearAppenders();        // standard output is for the answer
    tavos::msgbus::MsgBus connection;
    const std::unique_ptr<dome::IControl> control(dome::IControl::CreateClient(&connection));
    try {
        Words answer = control->Execute(words);
        while (answer.size() == 2 && answer[0] == "more") {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            answer = control->Execute(answer);
        }
        if (answer.size() != 2) throw Exception("the answer has %zu words, not 2", answer.size());
        return answer;
    } catch (const std::exception& error) {
        throw Exception("no answer from the camera in %s: %s", state.c_str(), error.what());
    }
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line("domectl", "Inspects and controls the desk camera.");
    std::string state, bus;
    line.add_option("--state", state, "the camera's folder")->type_name("DIR")->required();
    line.add_option("--bus", bus, "the camera's bus (default: the one in DIR)")->type_name("ADDRESS");
    AddCommands(line);
    if (const std::optional<int> status = line.Parse(argc, argv)) return *status;
    try {
        if (line.Words().front() == "trace") {
            const Words options(line.Words().begin() + 1, line.Words().end());
            return dome::Trace(state, bus.empty() ? dome::BusAddress(state) : bus, options);
        }
        const Words answer = Ask(state, bus, line.Words());
        const std::string& text = answer[1];
        if (answer[0] != "ok") {
            std::fprintf(stderr, "domectl: %s\n", text.c_str());
            return answer[0] == "unknown" ? 2 : 1;
        }
        const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
        if (!written || std::fflush(stdout) != 0) throw Exception("standard output cannot be written");
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "domectl: %s\n", error.what());
        return 1;
    }
}
