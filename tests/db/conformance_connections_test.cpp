// What every backend's connections do: transactions and savepoints, closing, and waiting for a lock
// another connection holds.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "db/conformance_fixture.h"

namespace quorbex::db::test {
namespace {

using EngineConnections = EngineConformance;

TEST_P(EngineConnections, TransactionsAndSavepoints) {
  REQUIRE_WRITABLE(Feature::Transactions);
  auto db = PeopleDatabase(1);
  db->BeginTrans();
  EXPECT_EQ(ErrorOf([&] { db->BeginTrans(); }).Kind(), ErrorKind::InvalidOperation);
  db->Execute("INSERT INTO people (name) VALUES ('gone')");
  db->Rollback();
  EXPECT_EQ(CountRows(*db, "people"), 1);
  db->BeginTrans();
  db->Execute("INSERT INTO people (name) VALUES ('kept')");
  db->CommitTrans();
  EXPECT_EQ(CountRows(*db, "people"), 2);
  EXPECT_EQ(ErrorOf([&] { db->CommitTrans(); }).Kind(), ErrorKind::InvalidOperation);
  EXPECT_EQ(ErrorOf([&] { db->Rollback(); }).Kind(), ErrorKind::InvalidOperation);

  db->BeginTrans();
  db->Savepoint("record1");
  db->Execute("INSERT INTO people (name) VALUES ('one')");
  db->ReleaseSavepoint("record1");
  db->Savepoint("record2");
  db->Execute("INSERT INTO people (name) VALUES ('two')");
  db->RollbackToSavepoint("record2");
  db->ReleaseSavepoint("record2");
  db->CommitTrans();
  EXPECT_EQ(CountRows(*db, "SELECT * FROM people WHERE name IN ('one', 'two')"), 1);
  db->Execute("UPDATE people SET city = 'Linz'");
  EXPECT_EQ(db->RecordsAffected(), 3);
}

TEST_P(EngineConnections, ClosingTheDatabaseEndsItsRecordsets) {
  auto db = PeopleDatabase(2);
  auto rs = db->OpenRecordset("SELECT * FROM people");
  auto field = rs->Fields("name");
  // A recordset keeps its database's connection alive while the caller drops the database.
  auto kept = ctx_->Reopen(*db)->OpenRecordset("SELECT * FROM people");
  kept->MoveLast();
  EXPECT_EQ(kept->RecordCount(), 2);

  db->Close();
  EXPECT_FALSE(db->IsOpen());
  EXPECT_EQ(ErrorOf([&] { rs->MoveNext(); }).Kind(), ErrorKind::Closed);
  EXPECT_EQ(ErrorOf([&] { field->Value(); }).Kind(), ErrorKind::Closed);
  EXPECT_EQ(ErrorOf([&] { db->OpenRecordset("people"); }).Kind(), ErrorKind::Closed);
  EXPECT_EQ(ErrorOf([&] { db->Execute("DELETE FROM people"); }).Kind(), ErrorKind::Closed);
  EXPECT_EQ(ErrorOf([&] { db->TableDefs(); }).Kind(), ErrorKind::Closed);
  db->Close();
  rs->Close();
  rs->Close();
  EXPECT_EQ(ErrorOf([&] { rs->RecordCount(); }).Kind(), ErrorKind::Closed);
}

TEST_P(EngineConnections, LockedDatabaseWaitsThenFailsClearly) {
  REQUIRE_WRITABLE(Feature::Transactions);
  DBEngine::Default()->BusyTimeout(200);
  auto db = PeopleDatabase(1);
  auto other = ctx_->Reopen(*db);
  other->BeginTrans();
  other->Execute("UPDATE people SET city = 'Graz' WHERE id = 1");
  auto start = std::chrono::steady_clock::now();
  // The same row: a server locks rows, a file the whole database; both wait for it.
  auto busy = ErrorOf([&] { db->Execute("UPDATE people SET city = 'Linz' WHERE id = 1"); });
  double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(busy.Kind(), ErrorKind::Busy);
  EXPECT_NE(busy.Description().find("locked by another connection"), std::string::npos) << busy.what();
  EXPECT_GE(waited, 0.15);
  EXPECT_LT(waited, 5.0);
  other->Rollback();
  db->Execute("UPDATE people SET city = 'Linz' WHERE id = 1");
  EXPECT_EQ(CountRows(*db, "SELECT * FROM people WHERE city = 'Linz'"), 1);
}

INSTANTIATE_TEST_SUITE_P(Backends, EngineConnections, ::testing::ValuesIn(AllContexts()), ContextTestName);

}  // namespace
}  // namespace quorbex::db::test
