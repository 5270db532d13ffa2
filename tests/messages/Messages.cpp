// A wrapper and its messages. Compiled without a fault, and with each fault that CMakeLists.txt names.
#include "core/PlatformCall.h"

int GetPosition(const tavos::core::Logger& logger, int& position);

int GetPosition(const tavos::core::Logger& logger, int& position) {
    constexpr auto kName = "GetPosition";
    [[maybe_unused]] const char* const formats[] = {"%s: currentPosition=%d"};
    return PlatformRead(
        logger, kName, "Exception while GetPosition", position, [] { return 5; },
        [&](int current) {
#if defined WRONG_TYPE
            logger.Information("%s: currentPosition=%f", kName, current);
#elif defined MISSING_ARGUMENT
            logger.Information("%s: currentPosition=%d, speed=%d", kName, current);
#elif defined ARGUMENT_TOO_MANY
            logger.Information("%s: currentPosition", kName, current);
#elif defined FROM_ELSEWHERE
            logger.Information(formats[position], kName, current);
#else
            logger.Information("%s: currentPosition=%d", kName, current);
#endif
        });
}
