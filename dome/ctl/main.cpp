// domectl: look at the desk camera and steer it from a shell.

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "ControlLink.h"
#include "Fleet.h"
#include "Play.h"
#include "Trace.h"
#include "Wait.h"
#include "dome/Faults.h"
#include "dome/StateFolder.h"
#include "tavos/core/CommandLine.h"
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
    line.AddCommand("wait", 0, kAnyNumber, dome::kWaitUsage);
    line.AddCommand("play", 1, 3, dome::kPlayUsage);
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
  event voltage|power STATUS [--count N]
                                         emits the event without a change of the reading; N of them, counting up)");
    line.AddCommand("fault", 2, 2,
                    "\n  fault SERVICE " + dome::FaultNames("|") +
                        R"(        SERVICE: pan tilt zoom focus focus2 iris presets presets2 alarm relay
                                         temperature voltage power fan)");
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line("domectl", "Inspects and controls the desk camera.");
    std::string state, bus, fleet, only;
    CLI::Option* const ofCamera =
        line.add_option("--state", state, "the camera's folder (default: $ORVEX_STATE, or else ./state)")
            ->type_name("DIR");
    CLI::Option* const onBus =
        line.add_option("--bus", bus, "the camera's bus (default: the one in DIR)")->type_name("ADDRESS");
    CLI::Option* const ofFleet =
        line.add_option("--fleet", fleet, "a fleet's folder: all of its cameras carry out the command")
            ->type_name("DIR")
            ->excludes(ofCamera)
            ->excludes(onBus);
    CLI::Option* const ofThem =
        line.add_option("--only", only, "of the fleet, these cameras: 1,4-6")->type_name("NUMBERS")->needs(ofFleet);
    AddCommands(line);
    if (const std::optional<int> status = line.Parse(argc, argv)) return *status;
    if (state.empty() && fleet.empty()) state = dome::FindStateFolder();
    if (state.empty() && fleet.empty()) {
        std::fprintf(stderr,
                     "domectl: no camera's folder: there is no ./state; --state DIR or the environment's ORVEX_STATE "
                     "names it\n");
        return 2;
    }
    const std::string& command = line.Words().front();
    const Words options(line.Words().begin() + 1, line.Words().end());
    try {
        if (ofThem->count() != 0 && only.empty()) throw Exception("--only requires numbers such as 1,4-6");
        if (!fleet.empty()) return dome::CommandFleet(fleet, only, line.Words());
        if (command == "trace") return dome::Trace(state, bus.empty() ? dome::BusAddress(state) : bus, options);
        if (command == "play") dome::Play(state, bus, options);
        dome::ControlLink camera(state, bus);
        if (command == "wait") return dome::Wait(camera, options);
        const Words answer = camera.Ask(line.Words());
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
