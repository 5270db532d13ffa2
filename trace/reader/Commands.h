#pragma once

#include <string>

#include "trace/reader/Meaning.h"
#include "trace/reader/Objects.h"

namespace trace {

/// Why the module refuses this value for this writable object, whatever the services do; empty when it does not.
std::string WhyRefused(const ObjectFacts& object, const Value& value);

/// Why a SET of this value that succeeds moves and changes nothing, whatever the services do; empty when it may.
std::string WhyWithoutEffect(const ObjectFacts& object, const Value& value);

/// What is odd about a value that the module takes: a short one, another type. Empty for nothing.
std::string Oddity(const ObjectFacts& object, const Value& value);

}  // namespace trace
