// The SQLite backend's test contexts: "SQLite", where every database is a new file in a temporary
// folder, and "SQLiteReadOnly", which opens its fixture files read-only as a backend that cannot write
// would, so the suite's read-only paths run without such a backend.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "db/test_context.h"
#include "support/temp_dir.h"

namespace quorbex::db::test {

class SqliteContext : public TestContext {
 public:
  std::string Name() const override { return "SQLite"; }
  std::shared_ptr<Database> NewDatabase() override;
  std::shared_ptr<Database> Reopen(const Database& database, bool read_only) override;

  bool FileBased() const override { return true; }
  std::string NewPath(const std::string& name) override { return dir_.File(name); }
  long long SizeOf(const std::string& path) const override;

 private:
  quorbex::test::TempDir dir_;
  int counter_ = 0;
};

class SqliteReadOnlyContext : public SqliteContext {
 public:
  std::string Name() const override { return "SQLiteReadOnly"; }
  bool Writable() const override { return false; }
  // Read-only contexts make no databases: fails the running test and gives null.
  std::shared_ptr<Database> NewDatabase() override;
  // The fixture is built once per run into a file through the writable SQLite context, then every call
  // opens that file read-only.
  std::shared_ptr<Database> OpenFixture(const std::string& name,
                                        const std::function<void(Database&)>& build) override;
  std::shared_ptr<Database> Reopen(const Database& database, bool read_only) override;
};

}  // namespace quorbex::db::test
