#include "db/sqlite/sqlite_context.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

namespace quorbex::db::test {

std::shared_ptr<Database> SqliteContext::NewDatabase() {
  return DBEngine::Default()->CreateDatabase(NewPath("db" + std::to_string(++counter_) + ".sqlite"));
}

std::shared_ptr<Database> SqliteContext::Reopen(const Database& database, bool read_only) {
  return DBEngine::Default()->OpenDatabase(database.Name(), false, read_only);
}

long long SqliteContext::SizeOf(const std::string& path) const {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

std::shared_ptr<Database> SqliteReadOnlyContext::NewDatabase() {
  ADD_FAILURE() << Name() << " makes no new databases; gate the case on a writable context";
  return nullptr;
}

std::shared_ptr<Database> SqliteReadOnlyContext::OpenFixture(const std::string& name,
                                                             const std::function<void(Database&)>& build) {
  // The files outlive each test's context and go with the process.
  static SqliteContext builder;
  static std::map<std::string, std::string> built;
  auto it = built.find(name);
  if (it == built.end()) {
    auto database = builder.NewDatabase();
    build(*database);
    database->Close();
    it = built.emplace(name, database->Name()).first;
  }
  return DBEngine::Default()->OpenDatabase(it->second, false, true);
}

std::shared_ptr<Database> SqliteReadOnlyContext::Reopen(const Database& database, bool /*read_only*/) {
  return DBEngine::Default()->OpenDatabase(database.Name(), false, true);
}

namespace {

const ContextRegistration kSqlite("SQLite", [] { return std::make_shared<SqliteContext>(); });
const ContextRegistration kSqliteReadOnly("SQLiteReadOnly", [] { return std::make_shared<SqliteReadOnlyContext>(); });

}  // namespace
}  // namespace quorbex::db::test
