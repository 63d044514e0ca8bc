// What the engine conformance suite needs from a backend: databases with the suite's data, a second
// connection to the same database, and the backend's declared quirks. Each backend's context lives beside
// its own tests (tests/db/<name>/<name>_context.cpp) and registers itself with a static
// ContextRegistration; the suite (conformance_*_test.cpp) runs once per registered context and asks the
// context instead of testing for a backend.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "quorbex/engine.h"

namespace quorbex::db::test {


class TestContext {
 public:
  virtual ~TestContext() = default;
  virtual std::string Name() const = 0;

  // Why the backend cannot be tested here (its server is not running, its client library is missing),
  // or empty when it can. The suite skips every case of an unavailable context with this text.
  virtual std::string Unavailable() const { return std::string(); }

  // Whether the context's databases can be written. A read-only context has no NewDatabase and gets
  // every database through OpenFixture.
  virtual bool Writable() const { return true; }

  // A new, empty, writable database that the context removes afterwards (writable contexts only).
  virtual std::shared_ptr<Database> NewDatabase() = 0;

  // The database of fixture `name`, which `build` fills on an empty writable database. A writable
  // context builds a fresh one each time; a read-only context opens its fixture file of that name, which
  // holds what `build` would have written.
  virtual std::shared_ptr<Database> OpenFixture(const std::string& name,
                                                const std::function<void(Database&)>& build) {
    (void)name;
    auto database = NewDatabase();
    build(*database);
    return database;
  }

  // A second, independent connection to the same database.
  virtual std::shared_ptr<Database> Reopen(const Database& database, bool read_only = false) = 0;

  // Quirks.
  // Databases are files: opening read-only or write-protected files, exclusive use and compaction into a
  // new file apply.
  virtual bool FileBased() const { return false; }
  // A path for a file that does not exist yet (file-based contexts only).
  virtual std::string NewPath(const std::string& /*name*/) { return std::string(); }
  // The size of the database in bytes, -1 when there is no such file (file-based contexts only).
  virtual long long SizeOf(const std::string& /*path*/) const { return 0; }
};

// A factory per context, so that every test gets fresh databases.
struct ContextFactory {
  std::string name;
  std::function<std::shared_ptr<TestContext>()> make;
};

inline void PrintTo(const ContextFactory& factory, std::ostream* os) { *os << factory.name; }

// A context's .cpp holds one of these at namespace scope; the context then joins every suite that runs
// over AllContexts().
struct ContextRegistration {
  ContextRegistration(std::string name, std::function<std::shared_ptr<TestContext>()> make);
};

// Every registered context, ordered by name.
std::vector<ContextFactory> AllContexts();
// The registered contexts whose databases can be written.
std::vector<ContextFactory> WritableContexts();
// The registered context of that name; fails the running test and gives an empty factory when there is none.
ContextFactory ContextNamed(const std::string& name);

// The test name suffix of a context, for INSTANTIATE_TEST_SUITE_P.
inline std::string ContextTestName(const ::testing::TestParamInfo<ContextFactory>& info) { return info.param.name; }

}  // namespace quorbex::db::test
