// What every backend's recordsets do: when they are updatable, adding, editing and deleting rows by
// their key, parameters, the cursor, handing rows over, and the errors of statements.
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <vector>

#include "db/conformance_fixture.h"

namespace quorbex::db::test {
namespace {

using EngineRecordsets = EngineConformance;

TEST_P(EngineRecordsets, UpdatableOnlyWithOneTableAndItsKey) {
  REQUIRE_WRITABLE(Feature::UpdatableRecordsets, Feature::SchemaChanges, Feature::StoredQueries);
  auto db = PeopleDatabase();
  auto updatable = [&](const std::string& sql) { return db->OpenRecordset(sql)->Updatable(); };
  EXPECT_TRUE(updatable("SELECT * FROM people"));
  EXPECT_TRUE(updatable("SELECT name, id FROM people WHERE city = 'Wien' ORDER BY name"));
  EXPECT_TRUE(updatable("people"));
  EXPECT_TRUE(updatable("SELECT * FROM (SELECT * FROM people ORDER BY id) AS q WHERE id = 2"));
  EXPECT_FALSE(updatable("SELECT name, city FROM people"));  // the key is missing
  EXPECT_FALSE(updatable("SELECT p.id, p.name, o.amount FROM people p JOIN orders o ON o.person = p.id"));
  EXPECT_FALSE(updatable("SELECT id, name || '!' AS shout FROM people"));
  EXPECT_FALSE(updatable("SELECT count(*) AS n FROM people"));
  // A row must stand for exactly one row of its table: a table joined with itself shows columns from
  // two rows, and aggregates, DISTINCT, GROUP BY and set operations fold rows.
  EXPECT_FALSE(updatable("SELECT p.id, p.name, q.city FROM people p JOIN people q ON q.id = p.id + 1"));
  EXPECT_FALSE(updatable("SELECT p.id, p.name FROM people p, people q WHERE q.id = p.id"));
  EXPECT_FALSE(updatable("SELECT max(id) AS id, name, max(city) AS city FROM people GROUP BY name"));
  EXPECT_FALSE(updatable("SELECT DISTINCT id, name FROM people"));
  EXPECT_FALSE(updatable("SELECT id, name FROM people GROUP BY id, name"));
  EXPECT_FALSE(updatable("SELECT id, name FROM people UNION SELECT id, name FROM people"));
  EXPECT_FALSE(updatable("SELECT id, name FROM people UNION ALL SELECT id, name FROM people WHERE id = 1"));
  EXPECT_FALSE(updatable("SELECT id, name FROM people INTERSECT SELECT id, name FROM people"));
  EXPECT_FALSE(updatable("SELECT id, name FROM people EXCEPT SELECT id, name FROM people WHERE id = 1"));
  // Subqueries that only pick rows, and names that merely look like keywords, do not count.
  EXPECT_TRUE(updatable("SELECT id, name FROM people WHERE id IN (SELECT person FROM orders GROUP BY person)"));
  EXPECT_TRUE(updatable("SELECT id, name FROM people p WHERE EXISTS (SELECT 1 FROM people q WHERE q.id = p.id)"));
  EXPECT_TRUE(updatable("SELECT id, \"name\" AS \"distinct\" FROM people WHERE city <> 'union' -- GROUP BY"));
  EXPECT_TRUE(updatable("SELECT p.id, p.name FROM people AS p"));
  db->CreateQueryDef("twice", "SELECT p.id, p.name FROM people p JOIN people q ON q.id = p.id");
  db->CreateQueryDef("grouped", "SELECT id, name FROM people GROUP BY id, name");
  EXPECT_FALSE(updatable("SELECT * FROM twice"));
  EXPECT_FALSE(updatable("SELECT * FROM grouped"));
  EXPECT_FALSE(updatable("SELECT g.id, g.name FROM grouped g JOIN people p ON p.id = g.id"));
  EXPECT_FALSE(db->OpenRecordset("SELECT * FROM people", dbOpenSnapshot)->Updatable());
  EXPECT_FALSE(db->OpenRecordset("SELECT * FROM people", dbOpenDynaset, dbReadOnly)->Updatable());

  // A stored query over one table is updatable, and writes reach the table.
  db->CreateQueryDef("wiener", "SELECT id, name FROM people WHERE city = 'Wien'");
  auto view = db->OpenRecordset("SELECT * FROM wiener WHERE id = 2");
  ASSERT_TRUE(view->Updatable());
  EXPECT_EQ(view->Fields("name")->SourceTable(), "people");
  view->Edit();
  view->Fields("name")->Value("Berta");
  view->Update();
  auto check = db->OpenRecordset("SELECT name FROM people WHERE id = 2");
  EXPECT_TRUE(check->Fields(0)->Value().SameAs(Variant("Berta")));

  auto shout = db->OpenRecordset("SELECT id, name || '!' AS shout FROM people");
  EXPECT_EQ(shout->Fields("shout")->SourceTable(), "");
  EXPECT_EQ(shout->Fields("id")->SourceTable(), "people");
  EXPECT_EQ(ErrorOf([&] { shout->AddNew(); }).Kind(), ErrorKind::NotUpdatable);
  EXPECT_EQ(ErrorOf([&] { shout->Edit(); }).Kind(), ErrorKind::NotUpdatable);
  EXPECT_EQ(ErrorOf([&] { shout->Delete(); }).Kind(), ErrorKind::NotUpdatable);
  EXPECT_NE(db->OpenRecordset("people")->Fields("name")->Attributes() & dbUpdatableField, 0);
  EXPECT_EQ(shout->Fields("id")->Attributes() & dbUpdatableField, 0);

  // A table without a key becomes updatable once it has a unique index.
  auto loose = db->CreateTableDef("loose");
  loose->Fields()->Append(loose->CreateField("code", dbText, 10));
  loose->Fields()->Append(loose->CreateField("label", dbText, 10));
  db->TableDefs()->Append(loose);
  EXPECT_FALSE(updatable("SELECT * FROM loose"));
  auto index = db->TableDefs()->Item("loose")->CreateIndex("bycode");
  index->Fields()->Append(index->CreateField("code"));
  index->Primary(true);
  db->TableDefs()->Item("loose")->Indexes()->Append(index);
  EXPECT_TRUE(updatable("SELECT * FROM loose"));

  auto reader = ctx_->Reopen(*db, true);
  EXPECT_FALSE(reader->Updatable());
  EXPECT_FALSE(reader->OpenRecordset("SELECT * FROM people")->Updatable());
}

TEST_P(EngineRecordsets, AddNewReadsBackTheGeneratedKey) {
  REQUIRE_WRITABLE(Feature::UpdatableRecordsets);
  auto db = PeopleDatabase(0);
  auto rs = db->OpenRecordset("SELECT * FROM people");
  EXPECT_TRUE(rs->EOF_());
  EXPECT_TRUE(rs->BOF());
  EXPECT_EQ(rs->RecordCount(), 0);

  rs->AddNew();
  EXPECT_EQ(rs->EditMode(), dbEditAdd);
  EXPECT_TRUE(rs->Fields("id")->Value().IsNull());
  rs->Fields("name")->Value("Anna");
  rs->Update();
  EXPECT_EQ(rs->EditMode(), dbEditNone);
  EXPECT_TRUE(rs->Fields("id")->Value().SameAs(Variant(1)));
  EXPECT_TRUE(rs->Fields("city")->Value().IsNull());  // not written: the database's default
  EXPECT_EQ(rs->RecordCount(), 1);
  EXPECT_FALSE(rs->EOF_());

  rs->AddNew();
  rs->Fields("NAME")->Value("Bernd");
  rs->Update();
  EXPECT_TRUE(rs->Fields("id")->Value().SameAs(Variant(2)));
  rs->MoveFirst();
  EXPECT_TRUE(rs->Fields("name")->Value().SameAs(Variant("Anna")));
  rs->MoveLast();
  EXPECT_TRUE(rs->Fields("id")->Value().SameAs(Variant(2)));
  EXPECT_EQ(rs->RecordCount(), 2);

  // An insert through a query that already read some rows lands after all of them.
  auto more = db->OpenRecordset("SELECT * FROM people ORDER BY id");
  more->AddNew();
  more->Fields("name")->Value("Clara");
  more->Update();
  EXPECT_TRUE(more->Fields("id")->Value().SameAs(Variant(3)));
  more->MoveLast();
  EXPECT_TRUE(more->Fields("name")->Value().SameAs(Variant("Clara")));
  EXPECT_EQ(more->RecordCount(), 3);
  EXPECT_EQ(CountRows(*ctx_->Reopen(*db), "SELECT * FROM people"), 3);

  // AddNew without any field set inserts the database's defaults.
  more->AddNew();
  more->Update();
  EXPECT_TRUE(more->Fields("id")->Value().SameAs(Variant(4)));
}

TEST_P(EngineRecordsets, EditAndDeleteFindTheRowByItsKey) {
  REQUIRE_WRITABLE(Feature::UpdatableRecordsets);
  auto db = PeopleDatabase(3);
  auto rs = db->OpenRecordset("SELECT id, name FROM people ORDER BY id");
  rs->MoveNext();
  rs->Edit();
  rs->Fields("name")->Value("Berta");
  EXPECT_TRUE(rs->Fields("name")->Value().SameAs(Variant("Berta")));  // the edit buffer
  rs->Update();
  EXPECT_TRUE(db->OpenRecordset("SELECT name FROM people WHERE id = 2")->Fields(0)->Value().SameAs(Variant("Berta")));

  rs->Delete();
  auto deleted = ErrorOf([&] { rs->Fields("name")->Value(); });
  EXPECT_EQ(deleted.Kind(), ErrorKind::NoCurrentRecord);
  EXPECT_STREQ(deleted.what(), "Record is deleted.");
  EXPECT_EQ(rs->RecordCount(), 2);
  rs->MoveNext();
  EXPECT_TRUE(rs->Fields("name")->Value().SameAs(Variant("Clara")));
  EXPECT_EQ(CountRows(*db, "SELECT * FROM people"), 2);

  // The row vanished behind the recordset's back: Edit + Update says so and keeps the edit.
  db->Execute("DELETE FROM people WHERE id = 3");
  rs->Edit();
  rs->Fields("name")->Value("Claudia");
  auto gone = ErrorOf([&] { rs->Update(); });
  EXPECT_EQ(gone.Kind(), ErrorKind::NoCurrentRecord);
  EXPECT_EQ(rs->EditMode(), dbEditInProgress);
  rs->CancelUpdate();
  EXPECT_EQ(ErrorOf([&] { rs->Delete(); }).Kind(), ErrorKind::NoCurrentRecord);

  // Writes need AddNew or Edit first.
  rs->MoveFirst();
  auto no_edit = ErrorOf([&] { rs->Update(); });
  EXPECT_EQ(no_edit.Kind(), ErrorKind::InvalidOperation);
  EXPECT_STREQ(no_edit.what(), "Update or CancelUpdate without AddNew or Edit.");
  EXPECT_EQ(ErrorOf([&] { rs->Fields("name")->Value("x"); }).Kind(), ErrorKind::InvalidOperation);
  // A move drops a pending edit.
  rs->Edit();
  rs->Fields("name")->Value("Anja");
  rs->MoveFirst();
  EXPECT_EQ(rs->EditMode(), dbEditNone);
  EXPECT_TRUE(rs->Fields("name")->Value().SameAs(Variant("Anna")));
}

TEST_P(EngineRecordsets, ParametersAndAbsolutePositionReachRowsByKey) {
  REQUIRE_WRITABLE(Feature::UpdatableRecordsets);
  auto db = PeopleDatabase(5);
  const Variant probe[] = {Variant("x' OR '1'='1")};
  EXPECT_TRUE(db->OpenRecordset("SELECT * FROM people WHERE name = ?", probe)->EOF_());  // a value, never SQL
  const Variant keys[] = {Variant(4), Variant("2")};
  auto rs = db->OpenRecordset("SELECT * FROM people WHERE id IN (?, ?) ORDER BY id", keys);
  rs->MoveLast();
  EXPECT_EQ(rs->RecordCount(), 2);
  rs->AbsolutePosition(1);
  EXPECT_EQ(CLng(rs->Fields("id")->Value()), 4);
  EXPECT_EQ(rs->AbsolutePosition(), 1);
  rs->Edit();
  rs->Fields("city")->Value("Bern");
  rs->Update();
  rs->AbsolutePosition(0);
  EXPECT_EQ(CLng(rs->Fields("id")->Value()), 2);
  rs->AbsolutePosition(1);
  EXPECT_EQ(rs->Fields("city")->Value().AsString(), "Bern");
  EXPECT_EQ(ErrorOf([&] { rs->AbsolutePosition(2); }).Kind(), ErrorKind::NoCurrentRecord);
  const Variant one[] = {Variant(1)};
  EXPECT_EQ(ErrorOf([&] { db->OpenRecordset("SELECT * FROM people WHERE id = ? OR id = ?", one); }).Kind(),
            ErrorKind::InvalidOperation);
}

TEST_P(EngineRecordsets, CursorMovesAndCountsLikeTheClassicEngine) {
  auto db = PeopleDatabase(5);
  auto empty = db->OpenRecordset("SELECT * FROM people WHERE id < 0");
  EXPECT_TRUE(empty->BOF());
  EXPECT_TRUE(empty->EOF_());
  auto no_current = ErrorOf([&] { empty->MoveFirst(); });
  EXPECT_EQ(no_current.Kind(), ErrorKind::NoCurrentRecord);
  EXPECT_STREQ(no_current.what(), "No current record.");
  EXPECT_EQ(ErrorOf([&] { empty->MoveLast(); }).Kind(), ErrorKind::NoCurrentRecord);
  EXPECT_EQ(ErrorOf([&] { empty->MoveNext(); }).Kind(), ErrorKind::NoCurrentRecord);
  EXPECT_EQ(ErrorOf([&] { empty->Fields("name")->Value(); }).Kind(), ErrorKind::NoCurrentRecord);
  EXPECT_EQ(empty->Fields()->Count(), 3);  // the columns are known without rows

  auto rs = db->OpenRecordset("SELECT * FROM people ORDER BY id;  ");  // a closing semicolon is fine
  EXPECT_GE(rs->RecordCount(), 1);
  EXPECT_FALSE(rs->BOF());
  rs->MoveLast();
  EXPECT_EQ(rs->RecordCount(), 5);
  rs->MoveFirst();
  int seen = 0;
  while (!rs->EOF_()) {
    ++seen;
    EXPECT_TRUE(rs->Fields("id")->Value().SameAs(Variant(seen)));
    rs->MoveNext();
  }
  EXPECT_EQ(seen, 5);
  EXPECT_EQ(ErrorOf([&] { rs->MoveNext(); }).Kind(), ErrorKind::NoCurrentRecord);
  rs->MovePrevious();
  EXPECT_TRUE(rs->Fields("id")->Value().SameAs(Variant(5)));
  rs->MoveFirst();
  rs->MovePrevious();
  EXPECT_TRUE(rs->BOF());
  EXPECT_FALSE(rs->EOF_());
  EXPECT_EQ(ErrorOf([&] { rs->MovePrevious(); }).Kind(), ErrorKind::NoCurrentRecord);
  rs->MoveNext();
  EXPECT_TRUE(rs->Fields("id")->Value().SameAs(Variant(1)));

  auto fields = rs->Fields();
  EXPECT_EQ(fields->Count(), 3);
  EXPECT_EQ(fields->Item(1)->Name(), "name");
  EXPECT_EQ(fields->Item("NaMe"), fields->Item(1));
  EXPECT_EQ(fields->IndexOf("CITY"), 2);
  EXPECT_EQ(fields->IndexOf("nope"), -1);
  EXPECT_EQ(ErrorOf([&] { fields->Item(3); }).Kind(), ErrorKind::ItemNotFound);
  EXPECT_EQ(ErrorOf([&] { fields->Item(-1); }).Kind(), ErrorKind::ItemNotFound);
  EXPECT_EQ(ErrorOf([&] { fields->Item("nope"); }).Kind(), ErrorKind::ItemNotFound);
  EXPECT_EQ(ErrorOf([&] { fields->Append(fields->Item(0)); }).Kind(), ErrorKind::InvalidOperation);

  // Letter case is ignored beyond ASCII too.
  auto umlauts = db->OpenRecordset("SELECT name AS \"Ärger\" FROM people");
  EXPECT_EQ(umlauts->Fields()->IndexOf("ÄRGER"), 0);
}

TEST_P(EngineRecordsets, TakeRowsHandsOverEveryRowOnce) {
  auto db = PeopleDatabase(4);
  auto rs = db->OpenRecordset("SELECT id, name FROM people ORDER BY id");
  rs->MoveNext();  // some rows already read and kept
  std::vector<int32_t> ids;
  int32_t rows = rs->TakeRows([&](std::span<Variant> row) {
    ASSERT_EQ(row.size(), 2u);
    ids.push_back(CLng(row[0]));
    Variant taken = std::move(row[1]);
    EXPECT_TRUE(taken.IsString());
  });
  EXPECT_EQ(rows, 4);
  EXPECT_EQ(ids, (std::vector<int32_t>{1, 2, 3, 4}));
  EXPECT_TRUE(rs->EOF_());
  EXPECT_EQ(rs->RecordCount(), 4);
  rs->MoveFirst();  // reads the query again
  EXPECT_TRUE(rs->Fields("name")->Value().SameAs(Variant("Anna")));

  auto empty = db->OpenRecordset("SELECT id FROM people WHERE id < 0");
  EXPECT_EQ(empty->TakeRows([](std::span<Variant>) { ADD_FAILURE(); }), 0);
  EXPECT_EQ(empty->RecordCount(), 0);
}

TEST_P(EngineRecordsets, ErrorsCarryTheEngineDescription) {
  auto db = PeopleDatabase(2);
  auto syntax = ErrorOf([&] { db->OpenRecordset("SELEC * FROM people"); });
  EXPECT_EQ(syntax.Kind(), ErrorKind::Syntax);
  EXPECT_FALSE(syntax.Description().empty());
  auto missing = ErrorOf([&] { db->OpenRecordset("SELECT * FROM nowhere"); });
  EXPECT_EQ(missing.Kind(), ErrorKind::NoSuchObject);
  EXPECT_NE(missing.Description().find("nowhere"), std::string::npos);
  EXPECT_EQ(ErrorOf([&] { db->Execute("INSERT INTO nowhere VALUES (1)"); }).Kind(), ErrorKind::NoSuchObject);
  auto select = ErrorOf([&] { db->Execute("SELECT * FROM people"); });
  EXPECT_EQ(select.Kind(), ErrorKind::InvalidOperation);
  EXPECT_STREQ(select.what(), "Cannot execute a select query.");
  EXPECT_EQ(ErrorOf([&] { db->Execute("   "); }).Kind(), ErrorKind::Syntax);

  // A recordset never runs an action statement, nor a second statement behind the first.
  EXPECT_EQ(ErrorOf([&] { db->OpenRecordset("DELETE FROM people"); }).Kind(), ErrorKind::InvalidOperation);
  EXPECT_EQ(ErrorOf([&] { db->OpenRecordset("SELECT * FROM people; DROP TABLE people"); }).Kind(), ErrorKind::Syntax);
  EXPECT_EQ(ErrorOf([&] { db->OpenRecordset(""); }).Kind(), ErrorKind::Syntax);
  EXPECT_EQ(CountRows(*db, "people"), 2);
}

TEST_P(EngineRecordsets, WritesBreakingARuleAreRefusedByKind) {
  REQUIRE_WRITABLE(Feature::SchemaChanges);
  auto db = PeopleDatabase(2);
  EXPECT_EQ(ErrorOf([&] { db->Execute("INSERT INTO people (id, name) VALUES (1, 'again')"); }).Kind(),
            ErrorKind::Constraint);
  auto odd = db->CreateTableDef("odd");
  EXPECT_EQ(ErrorOf([&] { odd->Fields()->Append(odd->CreateField("x", 99)); }).Kind(), ErrorKind::InvalidOperation);
}

INSTANTIATE_TEST_SUITE_P(Backends, EngineRecordsets, ::testing::ValuesIn(AllContexts()), ContextTestName);

}  // namespace
}  // namespace quorbex::db::test
