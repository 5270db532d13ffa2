#pragma once

#include <algorithm>
#include <string>

#include "frame/ScalarRegistration.h"

/// An object's row of the registration table; it must exist.
inline ScalarRegistration& RowOf(const std::string& name) {
    auto& table = ScalarTable();
    return *std::find_if(table.begin(), table.end(), [&](const auto& row) { return name == row.name; });
}
