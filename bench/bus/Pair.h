#pragma once

#include <functional>
#include <string>
#include <vector>

#include "bus/Sd.h"

namespace bench {

using NewCall = MessagePtr (*)(sd_bus* bus, const std::string& what);

/// Makes a round trip over a plain pair of sockets, with the octets of one of these calls and of its answer, as the bus
/// library writes them over a connection without a bus. Another process answers, which ends with this one. Each side
/// writes once and reads once, and waits in between.
std::function<void(const std::string& what)> OverAPair(const std::vector<std::string>& calls, NewCall newCall);

}  // namespace bench
