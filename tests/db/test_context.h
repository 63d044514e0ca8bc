// What the engine conformance suite needs from a backend: fresh databases, a second connection to the
// same database, and the backend's declared quirks. Each backend's context lives here; the suite
// (engine_conformance_test.cpp) runs once per context and asks the context instead of testing for a
// backend.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "quorbex/engine.h"
#include "support/temp_dir.h"

namespace quorbex::db::test {


class TestContext {
 public:
  virtual ~TestContext() = default;
  virtual std::string Name() const = 0;

  // A new, empty, writable database that the context removes afterwards.
  virtual std::shared_ptr<Database> NewDatabase() = 0;
  // A second, independent connection to the same database.
  virtual std::shared_ptr<Database> Reopen(const Database& database, bool read_only = false) = 0;

  // Quirks.
  // Databases are files: missing files, foreign files, compaction into a new file apply.
  virtual bool FileBased() const { return false; }
  // A path for a file that does not exist yet (file-based contexts only).
  virtual std::string NewPath(const std::string& /*name*/) { return std::string(); }
  // The size of the database in bytes (file-based contexts only).
  virtual long long SizeOf(const std::string& /*path*/) const { return 0; }
};

// SQLite: every database is a file in a temporary folder.
class SqliteContext : public TestContext {
 public:
  std::string Name() const override { return "SQLite"; }

  std::shared_ptr<Database> NewDatabase() override {
    return DBEngine::Default()->CreateDatabase(NewPath("db" + std::to_string(++counter_) + ".sqlite"));
  }

  std::shared_ptr<Database> Reopen(const Database& database, bool read_only) override {
    return DBEngine::Default()->OpenDatabase(database.Name(), false, read_only);
  }

  bool FileBased() const override { return true; }
  std::string NewPath(const std::string& name) override { return dir_.File(name); }
  long long SizeOf(const std::string& path) const override {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
  }

 private:
  quorbex::test::TempDir dir_;
  int counter_ = 0;
};

// A factory per backend, so that every test gets fresh files.
struct ContextFactory {
  std::string name;
  std::shared_ptr<TestContext> (*make)();
};

inline void PrintTo(const ContextFactory& factory, std::ostream* os) { *os << factory.name; }

inline std::vector<ContextFactory> AllContexts() {
  return {{"SQLite", [] { return std::shared_ptr<TestContext>(std::make_shared<SqliteContext>()); }}};
}

}  // namespace quorbex::db::test
