#include "core/FixedLogging.h"

#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"

void ApplyFixedLogging() {
    // Fixed: docs/contract.md, fixed-logging.
    tavos::core::Logger::ClearAppenders();
    tavos::core::IniFile fixedSetup;
    fixedSetup.SetValue("log", "log.stdout", "true");
    fixedSetup.SetValue("log", "log.level", "3");
    tavos::core::Logger::ConfigureLogging(fixedSetup, "log");
}
