#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "trace/reader/Reason.h"
#include "trace/reader/Record.h"

namespace trace {

/// A record's object with all members that every object of the trace has, in their order; motions and traps are empty.
nlohmann::ordered_json RecordJson(const Record& record, const std::string& who, const Judgement& judgement,
                                  std::uint64_t lost);

/// The object of what the page or domectl did; `words` as they were given.
nlohmann::ordered_json ActionJson(std::int64_t time, const std::string& by, std::uint64_t number,
                                  const std::string& words, const std::string& refused);

/// [{"oid", "name", "type", "value", "meaning"}]
nlohmann::ordered_json BindingsJson(const std::vector<Binding>& bindings, bool isSet);

/// On one line, always UTF-8.
std::string Line(const nlohmann::ordered_json& json);

}  // namespace trace
