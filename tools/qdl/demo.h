#pragma once

#include <string>

namespace quorbex::qdl {

// Creates a sample SQLite database in `folder` (replacing an earlier one), or the sample tables in the
// server database `server` names when it is not empty, and walks the typical road of a change on it,
// printing each step. `folder` keeps the session logs and settings either way. Returns the process exit
// code.
int RunDemo(const std::string& folder, const std::string& server = "");

}  // namespace quorbex::qdl
