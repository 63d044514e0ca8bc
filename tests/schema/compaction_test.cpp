#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "quorbex/DBCompacter.h"
#include "quorbex/clsTableManager.h"
#include "quorbex/engine.h"
#include "schema/schema_fixture.h"

namespace quorbex::test {
namespace {

namespace fs = std::filesystem;

// A database with 20,000 rows of which all but 100 are deleted again, so compacting shrinks it.
void MakeShrinkableDatabase(const std::string& path) {
  auto database = db::DBEngine::Default()->CreateDatabase(path);
  auto table = database->CreateTableDef("notes");
  auto id = table->CreateField("id", db::dbLong);
  id->Attributes(db::dbAutoIncrField);
  table->Fields()->Append(id);
  table->Fields()->Append(table->CreateField("text", db::dbMemo));
  database->TableDefs()->Append(table);
  database->BeginTrans();
  for (int i = 0; i < 20000; ++i) {
    database->Execute("INSERT INTO notes (text) VALUES ('" + std::string(200, static_cast<char>('a' + i % 26)) + "')");
  }
  database->CommitTrans();
  database->Execute("DELETE FROM notes WHERE id > 100");
  database->Close();
}

// SQLite's own verdict on the file, and its row count.
std::string Check(const std::string& path, int* rows = nullptr) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  std::string verdict = "cannot open";
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW) {
    verdict = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
  }
  sqlite3_finalize(stmt);
  if (rows && sqlite3_prepare_v2(db, "SELECT count(*) FROM notes", -1, &stmt, nullptr) == SQLITE_OK &&
      sqlite3_step(stmt) == SQLITE_ROW) {
    *rows = sqlite3_column_int(stmt, 0);
  }
  sqlite3_finalize(stmt);
  sqlite3_close(db);
  return verdict;
}

// A child process that keeps the file open (no lock, no transaction) until it is killed.
pid_t HoldOpenElsewhere(const std::string& path) {
  int ready[2];
  EXPECT_EQ(pipe(ready), 0);
  pid_t child = fork();
  if (child == 0) {
    sqlite3* db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_exec(db, "SELECT count(*) FROM notes", nullptr, nullptr, nullptr);
    (void)!write(ready[1], "x", 1);
    pause();
    _exit(0);
  }
  char byte;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  close(ready[1]);
  return child;
}

void Stop(pid_t child) {
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(SchemaFiles, DBCompacterCompactsInPlaceAndKeepsTheOriginal) {
  const std::string path = dir_.File("shop.mdb");
  MakeShrinkableDatabase(path);
  const auto size_before = fs::file_size(path);
  // A lock file nobody holds any more is cleared away.
  WriteBytes(dir_.File("shop.ldb"), "stale");

  DBCompacter compacter;
  ASSERT_TRUE(compacter.CompactAndRepair(path)) << compacter.ErrorStatus();
  EXPECT_EQ(compacter.ErrorStatus(), "");
  const std::string kept = compacter.RenamedOriginalDatabaseName();
  EXPECT_EQ(kept.rfind(dir_.File("shop_"), 0), 0u) << kept;
  EXPECT_EQ(kept.substr(kept.size() - 4), ".mdb");
  EXPECT_EQ(fs::file_size(kept), size_before);
  EXPECT_LT(fs::file_size(path), size_before / 4);
  int rows = 0;
  EXPECT_EQ(Check(path, &rows), "ok");
  EXPECT_EQ(rows, 100);
  EXPECT_FALSE(fs::exists(dir_.File("shop.ldb")));
  // Only the database and the kept original are left: no copy, no journal.
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_.Path()), fs::directory_iterator()), 2);

  // A second run the same second keeps a second original under another name.
  ASSERT_TRUE(compacter.CompactAndRepair(path)) << compacter.ErrorStatus();
  EXPECT_NE(compacter.RenamedOriginalDatabaseName(), kept);
}

TEST_F(SchemaFiles, DBCompacterRefusesAndNumbersItsReasons) {
  const std::string path = dir_.File("shop.mdb");
  MakeShrinkableDatabase(path);
  DBCompacter compacter;

  EXPECT_FALSE(compacter.CompactAndRepair(dir_.File("shop.sqlite")));
  EXPECT_FALSE(compacter.CompactAndRepair(dir_.File("shop")));
  EXPECT_EQ(compacter.ErrorStatus(),
            "1) " + dir_.File("shop.sqlite") + " has no .mdb extention and is therefore not reckognized as database\r\n"
            "2) " + dir_.File("shop") + " has no .mdb extention and is therefore not reckognized as database");

  // In use: a connection of this process, then one of another process.
  {
    auto open_here = db::DBEngine::Default()->OpenDatabase(path);
    EXPECT_FALSE(compacter.CompactAndRepair(path));
  }
  const pid_t child = HoldOpenElsewhere(path);
  EXPECT_FALSE(compacter.CompactAndRepair(path));
  Stop(child);
  const std::string in_use = path + " is in use. Compacting cannot proceed";
  EXPECT_NE(compacter.ErrorStatus().find("3) " + in_use + "\r\n4) " + in_use), std::string::npos)
      << compacter.ErrorStatus();

  EXPECT_FALSE(compacter.CompactAndRepair(dir_.File("missing.mdb")));
  EXPECT_NE(compacter.ErrorStatus().find("5) Error when compacting database (DAO.Compactdatabase) '" +
                                         dir_.File("missing.mdb") + "': "),
            std::string::npos)
      << compacter.ErrorStatus();
  WriteBytes(dir_.File("notes.mdb"), "just some text, not a database");
  EXPECT_FALSE(compacter.CompactAndRepair(dir_.File("notes.mdb")));
  EXPECT_NE(compacter.ErrorStatus().find("6) Error when compacting database (DAO.Compactdatabase) '" +
                                         dir_.File("notes.mdb") + "': Unrecognized database format"),
            std::string::npos)
      << compacter.ErrorStatus();
  EXPECT_EQ(compacter.RenamedOriginalDatabaseName(), "");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_.Path()), fs::directory_iterator()), 2) << "nothing touched";
  EXPECT_EQ(box_->Count(), 0u);
}

TEST_F(SchemaFiles, CompactDBCompactsTheBoundDatabaseAndReopensIt) {
  const std::string path = dir_.File("shop.sqlite");
  MakeShrinkableDatabase(path);
  const auto size_before = fs::file_size(path);
  auto manager = std::make_shared<clsTableManager>();
  manager->KeepDBOpen = true;
  manager->SetDatabaseByPath(path);

  // Another connection to the file refuses the compaction and leaves the binding working.
  {
    auto other = db::DBEngine::Default()->OpenDatabase(path);
    EXPECT_FALSE(CBool(manager->CompactDB()));
    EXPECT_EQ(manager->ErrorStatus,
              "Die Datenbank kann nicht komprimiert werden, da sie in einem anderen Programm noch offen ist!");
    EXPECT_EQ(box_->Count(), 1u);
    EXPECT_EQ(manager->GetFieldTypeEnum("notes", "id"), db::dbLong);
  }

  EXPECT_TRUE(CBool(manager->CompactDB())) << manager->ErrorStatus;
  const std::string kept = manager->RenamedOriginalDatabaseName();
  EXPECT_EQ(kept.rfind(dir_.File("shop_orig_"), 0), 0u) << kept;
  EXPECT_EQ(fs::file_size(kept), size_before);
  EXPECT_LT(fs::file_size(path), size_before / 4);
  manager->DBExecute("INSERT INTO notes (text) VALUES ('after')");
  auto rows = internal::State().current_database->OpenRecordset("SELECT count(*) FROM notes");
  EXPECT_EQ(CLng(rows->Fields(0)->Value()), 101);

  // A closed binding.
  internal::State().current_database->Close();
  EXPECT_FALSE(CBool(manager->CompactDB()));
  EXPECT_EQ(manager->ErrorStatus,
            "QuorbexDataLayser.clsTableManager: You must first set the DB in the Datalayer class. Then you can use "
            "this method!");
}

}  // namespace
}  // namespace quorbex::test
