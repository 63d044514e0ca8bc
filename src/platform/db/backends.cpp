// The list of backends. Adding a backend means adding its folder, its CMake module (which defines
// QUORBEX_WITH_<NAME> when the backend is built) and its line here.
#include "platform/db/backend.h"
#include "platform/db/unbuilt_backend.h"

#ifdef QUORBEX_WITH_SQLITE
#include "platform/db/sqlite/sqlite_database.h"
#endif
#ifdef QUORBEX_WITH_POSTGRESQL
#include "platform/db/postgresql/pg_database.h"
#endif
#ifdef QUORBEX_WITH_JET
#include "platform/db/jet/jet_database.h"
#endif

namespace quorbex::db::internal {

std::span<Backend* const> Backends() {
  static Backend* const kList[] = {
#ifdef QUORBEX_WITH_SQLITE
      &SqliteBackend(),
#endif
#ifdef QUORBEX_WITH_JET
      &JetBackend(),  // before the stand-in below, which then only speaks for builds without it
#endif
      &UnbuiltJetBackend(),
#ifdef QUORBEX_WITH_POSTGRESQL
      &PostgresqlBackend(),
#else
      &UnbuiltServerBackend(),
#endif
  };
  return kList;
}

}  // namespace quorbex::db::internal
