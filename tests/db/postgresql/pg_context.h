// The PostgreSQL backend's test context: every database is a schema of its own on the server the test
// script started (scripts/with-pg.sh sets PGHOST), reached by a connection string whose search path
// names that schema. Without PGHOST the context is unavailable and its cases are skipped.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "db/test_context.h"

namespace quorbex::db::test {

class PostgresqlContext : public TestContext {
 public:
  ~PostgresqlContext() override;
  std::string Name() const override { return "PostgreSQL"; }
  std::string Unavailable() const override;
  std::shared_ptr<Database> NewDatabase() override;
  std::shared_ptr<Database> Reopen(const Database& database, bool read_only) override;

  // The connection string of the server's own database, for tests that need one outside a context.
  static std::string ServerConnection();
  // A connection string for a new, empty schema of its own (dropped when the context ends).
  std::string NewSchemaConnection();

 private:
  std::vector<std::string> schemas_;
};

}  // namespace quorbex::db::test
