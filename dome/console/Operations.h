#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "dome/services/Services.h"

namespace dome::console {

/// True for an operation that the console may call: those that a manager's commands end in.
bool IsOperation(const std::string& service, const std::string& operation);

/// Calls one operation, IsOperation, of the camera's services. Throws tavos::osa::Exception when the arguments are of
/// another number or type than the operation's, and what the operation throws.
void Call(Services& services, const std::string& service, const std::string& operation,
          const nlohmann::json& arguments);

/// The arguments as texts, as those of a call from the bus.
std::vector<std::string> Texts(const nlohmann::json& arguments);

}  // namespace dome::console
