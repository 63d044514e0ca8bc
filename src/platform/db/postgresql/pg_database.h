// The PostgreSQL backend: databases on a server, named by a postgresql:// URI or a libpq key=value
// string. Every libpq parameter passes through; DBEngine's default user and password apply where the
// string names none. A database is kept under its connection string without the password.
#pragma once

#include "platform/db/backend.h"

namespace quorbex::db::internal {

Backend& PostgresqlBackend();

}  // namespace quorbex::db::internal
