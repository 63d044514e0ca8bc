// `qdl migrate` from the shared Jet files into new SQLite files: the copy matches its source table by
// table and row by row, and a refused migration leaves nothing behind.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>

#include "quorbex/engine.h"
#include "support/temp_dir.h"

namespace quorbex::test {
namespace {

struct QdlRun {
  int code = -1;
  std::string out, err;
};

QdlRun Migrate(const TempDir& dir, const std::string& source, const std::string& target) {
  const std::string out = dir.File("stdout"), err = dir.File("stderr");
  const std::string command = std::string("'") + QDL_PATH + "' migrate '" + source + "' '" + target + "' >'" + out +
                              "' 2>'" + err + "' </dev/null";
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadBytes(out), ReadBytes(err)};
}

// Every row of `table`, each value as its kind and text, in key order.
std::vector<std::string> Rows(db::Database& database, const std::string& table) {
  auto fields = database.TableDefs()->Item(table)->Fields();
  std::string order;
  for (int32_t i = 0; i < fields->Count(); ++i) {
    if (fields->Item(i)->Type() != db::dbLongBinary && fields->Item(i)->Type() != db::dbMemo) {
      order += (order.empty() ? "" : ", ") + database.QuoteName(fields->Item(i)->Name());
    }
  }
  auto rs = database.OpenRecordset("SELECT * FROM " + database.QuoteName(table) + " ORDER BY " + order, db::dbOpenSnapshot);
  std::vector<std::string> rows;
  rs->TakeRows([&](std::span<Variant> row) {
    std::string line;
    for (const auto& v : row) line += std::to_string(static_cast<int>(v.Type())) + ":" + (v.IsNull() ? "" : CStr(v)) + "|";
    rows.push_back(line);
  });
  return rows;
}

TEST(JetMigrate, TheCopyMatchesItsSourceTableByTableAndRowByRow) {
  struct stat st {};
  if (::stat(QUORBEX_SHARED_DATA, &st) != 0) GTEST_SKIP() << "the shared data folder " QUORBEX_SHARED_DATA " is absent";
  TempDir dir;
  for (const char* file : {"northwind_jet4.mdb", "northwind_jet3.mdb", "DateTestDatabase.mdb", "ASampleDatabase.accdb"}) {
    const std::string source_path = std::string(QUORBEX_SHARED_DATA) + "/" + file;
    const std::string target_path = dir.File(std::string(file) + ".db");
    QdlRun run = Migrate(dir, source_path, target_path);
    ASSERT_EQ(run.code, 0) << file << ": " << run.err;
    EXPECT_NE(run.out.find(" s\n"), std::string::npos) << run.out;
    auto source = db::DBEngine::Default()->OpenDatabase(source_path);
    auto target = db::DBEngine::Default()->OpenDatabase(target_path);
    EXPECT_TRUE(target->Updatable());
    auto tables = source->TableDefs();
    int compared = 0;
    for (int32_t t = 0; t < tables->Count(); ++t) {
      auto table = tables->Item(t);
      if (table->Attributes() & db::dbSystemObject) continue;
      auto copy = target->TableDefs()->Item(table->Name());
      ASSERT_EQ(copy->Fields()->Count(), table->Fields()->Count()) << table->Name();
      for (int32_t f = 0; f < table->Fields()->Count(); ++f) {
        EXPECT_EQ(copy->Fields()->Item(f)->Type(), table->Fields()->Item(f)->Type()) << table->Name();
      }
      EXPECT_EQ(copy->Indexes()->Count(), table->Indexes()->Count()) << table->Name();
      EXPECT_EQ(Rows(*target, table->Name()), Rows(*source, table->Name())) << file << " " << table->Name();
      ++compared;
    }
    EXPECT_GT(compared, 0);
    EXPECT_EQ(target->Relations().size(), source->Relations().size()) << file;
    int views = 0;
    for (int32_t i = 0; i < source->QueryDefs()->Count(); ++i) views += source->QueryDefs()->Item(i)->Unavailable().empty();
    EXPECT_EQ(target->QueryDefs()->Count(), views) << file;
  }
  auto target = db::DBEngine::Default()->OpenDatabase(dir.File("northwind_jet4.mdb.db"));
  auto rs = target->OpenRecordset("SELECT count(*) FROM \"Invoices\"", db::dbOpenSnapshot);
  EXPECT_EQ(CLng(rs->Fields(0)->Value()), 2155);

  // An existing target is never touched; a source that cannot be read leaves no target behind.
  WriteBytes(dir.File("taken.db"), "keep");
  QdlRun taken = Migrate(dir, std::string(QUORBEX_SHARED_DATA) + "/DateTestDatabase.mdb", dir.File("taken.db"));
  EXPECT_EQ(taken.code, 1);
  EXPECT_EQ(ReadBytes(dir.File("taken.db")), "keep");
  WriteBytes(dir.File("broken.mdb"), ReadBytes(std::string(QUORBEX_SHARED_DATA) + "/northwind_jet4.mdb").substr(0, 4096));
  QdlRun broken = Migrate(dir, dir.File("broken.mdb"), dir.File("never.db"));
  EXPECT_EQ(broken.code, 1);
  EXPECT_NE(broken.err.find("broken.mdb"), std::string::npos) << broken.err;
  EXPECT_NE(::stat(dir.File("never.db").c_str(), &st), 0);
}

}  // namespace
}  // namespace quorbex::test
