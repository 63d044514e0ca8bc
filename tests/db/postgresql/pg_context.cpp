#include "db/postgresql/pg_context.h"

#include <unistd.h>

#include <cstdlib>

namespace quorbex::db::test {

std::string PostgresqlContext::Unavailable() const {
  const char* host = std::getenv("PGHOST");
  if (host == nullptr || *host == '\0') {
    return "PGHOST is not set; run the tests under scripts/with-pg.sh, which starts a throwaway server "
           "(Debian package postgresql)";
  }
  return std::string();
}

std::string PostgresqlContext::ServerConnection() {
  const char* host = std::getenv("PGHOST");
  const char* port = std::getenv("PGPORT");
  return std::string("host=") + (host ? host : "") + " port=" + (port ? port : "5432") + " dbname=postgres";
}

std::string PostgresqlContext::NewSchemaConnection() {
  static int counter = 0;
  const std::string schema = "qdl_" + std::to_string(::getpid()) + "_" + std::to_string(++counter);
  DBEngine::Default()->OpenDatabase(ServerConnection())->Execute("CREATE SCHEMA " + schema);
  schemas_.push_back(schema);
  return ServerConnection() + " options='-c search_path=" + schema + "'";
}

PostgresqlContext::~PostgresqlContext() {
  if (schemas_.empty()) return;
  try {
    auto server = DBEngine::Default()->OpenDatabase(ServerConnection());
    for (const auto& schema : schemas_) server->Execute("DROP SCHEMA " + schema + " CASCADE");
  } catch (const std::exception&) {
    // The cluster is thrown away after the run anyway.
  }
}

std::shared_ptr<Database> PostgresqlContext::NewDatabase() {
  return DBEngine::Default()->OpenDatabase(NewSchemaConnection());
}

std::shared_ptr<Database> PostgresqlContext::Reopen(const Database& database, bool read_only) {
  return DBEngine::Default()->OpenDatabase(database.Name(), false, read_only);
}

namespace {

const ContextRegistration kPostgresql("PostgreSQL", [] { return std::make_shared<PostgresqlContext>(); });

}  // namespace
}  // namespace quorbex::db::test
