// bench-logger: the time of a log call when its level is off, and of formatting and writing a line when it is on.

#include <benchmark/benchmark.h>

#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"

namespace {

using tavos::core::Logger;

const Logger& Quiet() {
    Logger::ClearAppenders();
    tavos::core::IniFile setup;
    setup.SetValue("log", "log.level", "3");
    setup.SetValue("log", "log.file", "/dev/null");
    Logger::ConfigureLogging(setup, "log");
    return *Logger::GetLogger("bench");
}

void TraceThatIsOff(benchmark::State& state) {
    const Logger& logger = Quiet();
    for (auto _ : state) logger.Trace("%s: Enter.", "handle_positionPan");
}
BENCHMARK(TraceThatIsOff);

void InformationThatIsOff(benchmark::State& state) {
    const Logger& logger = Quiet();
    int number = 0;
    for (auto _ : state) logger.Information("%s: SetPositionAtSpeed(%d,%f,300)", "SetPositionAtSpeed", ++number, 0.5);
}
BENCHMARK(InformationThatIsOff);

void ErrorToAFile(benchmark::State& state) {
    const Logger& logger = Quiet();
    int number = 0;
    for (auto _ : state) logger.Error("%s: unknown mode (%d)", "handle_positionPan", ++number);
}
BENCHMARK(ErrorToAFile);

}  // namespace

BENCHMARK_MAIN();
