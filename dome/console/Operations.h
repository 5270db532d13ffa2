#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "dome/services/Services.h"

namespace dome::console {

/// True for an operation that the console may call: those that change something, as a manager's commands do.
bool IsOperation(const std::string& service, const std::string& operation);

/// Calls an operation of the camera's services for which IsOperation is true. Throws tavos::osa::Exception, with the
/// names of operation and argument and the argument's type, when an argument is missing, surplus or of another type;
/// and what the operation throws.
void Call(Services& services, const std::string& service, const std::string& operation,
          const nlohmann::json& arguments);

/// The arguments as texts, in the form of a call from the bus.
std::vector<std::string> Texts(const nlohmann::json& arguments);

}  // namespace dome::console
