// The SQLite backend: the embedded default. Databases are files; a new database is created as SQLite
// whatever its extension.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/db/backend.h"

namespace quorbex::db::internal {

Backend& SqliteBackend();

namespace sqlite {
class Connection;

// A SQLite database that lives in memory only, with the connection under it: the Jet backend's
// mirror. `label` is the name it reports (and names in its errors). With `image` (bytes from
// sqlite3_serialize), the database starts as a copy of that image; otherwise it starts empty.
struct MemoryDatabase {
  std::shared_ptr<Database> database;
  std::shared_ptr<Connection> connection;
};
MemoryDatabase OpenMemoryDatabase(const std::string& label, int busy_ms, std::string_view image = {});
}  // namespace sqlite

}  // namespace quorbex::db::internal
