#include "tavos/msgbus/Switch.h"

#include <cstdlib>
#include <string>

#include "tavos/core/Logger.h"

namespace tavos::msgbus {

bool IsOn(const char* variable) {
    const char* const given = std::getenv(variable);
    const std::string word = given ? given : "";
    if (word == "off") return false;
    if (!word.empty() && word != "on") {
        core::Logger::GetLogger("tavos")->Error("%s must be on or off, not \"%s\"; it counts as on", variable,
                                                word.c_str());
    }
    return true;
}

}  // namespace tavos::msgbus
