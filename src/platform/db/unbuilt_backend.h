// Formats the library recognises but has no backend for in this build. They stand in the backend list
// so that opening such a database says what it is instead of "Unrecognized database format".
#pragma once

#include "platform/db/backend.h"

namespace quorbex::db::internal {

// Jet 3/4 and ACE files ("Standard Jet DB" / "Standard ACE DB" at offset 4).
Backend& UnbuiltJetBackend();
// postgresql:// and postgres:// connection strings.
Backend& UnbuiltServerBackend();

}  // namespace quorbex::db::internal
