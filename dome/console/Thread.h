#pragma once

#include <functional>
#include <thread>

namespace dome::console {

/// A thread that handles no signals: those of the process are for the thread that serves the bus.
std::thread StartWithoutSignals(std::function<void()> run);

}  // namespace dome::console
