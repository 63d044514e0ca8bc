// Texts and small helpers shared by the DataLayer's source files.
#pragma once

#include <string>

namespace quorbex::internal {

inline constexpr const char* kNotLoaded = "Recordset not Loaded!";

// The trimmed, upper-cased form used for every by-name field lookup but FieldID's first step.
std::string FieldKey(const std::string& name);

}  // namespace quorbex::internal
