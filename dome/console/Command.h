#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "trace/reader/Message.h"

namespace dome::console {

/// {"oid": "1.3.6.1...", "type": "OCTET STRING", "value": "02 40 46 50"}, with types and values as the trace writes
/// them; octets are hexadecimal. Throws Refusal for a body that is none.
trace::Binding CommandOf(const nlohmann::json& body);

/// What the agent will make of a SET of it: {"meaning", "refused", "effect", "oddity"}, each a text in words, empty
/// when there is nothing to say. `refused`: why the module refuses it; `effect`: why it can have none.
nlohmann::json Explain(const trace::Binding& command);

/// [{"name", "oid", "type", "writable", "column"}]: the camera's objects. A column's OID lacks its row.
nlohmann::json ObjectsJson();

}  // namespace dome::console
