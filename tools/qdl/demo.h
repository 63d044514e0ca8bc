#pragma once

#include <string>

namespace quorbex::qdl {

// Creates a sample SQLite database in `folder` (replacing an earlier one) and walks the typical road of
// a change on it, printing each step. Returns the process exit code.
int RunDemo(const std::string& folder);

}  // namespace quorbex::qdl
