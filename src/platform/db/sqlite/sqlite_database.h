// The SQLite backend: the embedded default. Databases are files; a new database is created as SQLite
// whatever its extension.
#pragma once

#include "platform/db/backend.h"

namespace quorbex::db::internal {

Backend& SqliteBackend();

}  // namespace quorbex::db::internal
