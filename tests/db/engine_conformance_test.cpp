// The engine conformance suite: what every backend must do, run once per backend test context.
// Schema is made through the engine's own objects and data through recordsets or plain SQL, so the
// same tests hold for any SQL engine; quirks come from the context.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "db/test_context.h"
#include "quorbex/engine.h"
#include "quorbex/locale.h"

namespace quorbex::db::test {

namespace {

template <class F>
EngineError ErrorOf(F&& f) {
  try {
    f();
  } catch (const EngineError& e) {
    return e;
  }
  ADD_FAILURE() << "expected an EngineError";
  return EngineError(ErrorKind::General, "");
}

class EngineConformance : public ::testing::TestWithParam<ContextFactory> {
 protected:
  void SetUp() override {
    Locale::SetCurrent(Locale::C());
    saved_timeout_ = DBEngine::Default()->BusyTimeout();
    ctx_ = GetParam().make();
  }
  void TearDown() override { DBEngine::Default()->BusyTimeout(saved_timeout_); }

  // people(id auto-increment, name Text(50), city Text(50)) and orders(id, person Long, amount Double).
  std::shared_ptr<Database> PeopleDatabase(int rows = 3) {
    auto db = ctx_->NewDatabase();
    auto people = db->CreateTableDef("people");
    auto id = people->CreateField("id", dbLong);
    id->Attributes(dbAutoIncrField);
    people->Fields()->Append(id);
    people->Fields()->Append(people->CreateField("name", dbText, 50));
    people->Fields()->Append(people->CreateField("city", dbText, 50));
    db->TableDefs()->Append(people);
    auto orders = db->CreateTableDef("orders");
    auto oid = orders->CreateField("id", dbLong);
    oid->Attributes(dbAutoIncrField);
    orders->Fields()->Append(oid);
    orders->Fields()->Append(orders->CreateField("person", dbLong));
    orders->Fields()->Append(orders->CreateField("amount", dbDouble));
    db->TableDefs()->Append(orders);
    const char* names[] = {"Anna", "Bernd", "Clara", "Dora", "Emil", "Fritz", "Gerda"};
    for (int i = 0; i < rows; ++i) {
      db->Execute("INSERT INTO people (name, city) VALUES ('" + std::string(names[i % 7]) + "', 'Wien')");
    }
    db->Execute("INSERT INTO orders (person, amount) VALUES (1, 9.5)");
    return db;
  }

  static int32_t CountRows(Database& db, const std::string& sql) {
    auto rs = db.OpenRecordset(sql, dbOpenSnapshot);
    if (rs->EOF_()) return 0;
    rs->MoveLast();
    return rs->RecordCount();
  }

  std::shared_ptr<TestContext> ctx_;
  int32_t saved_timeout_ = 0;
};

TEST_P(EngineConformance, EveryTypeCodeRoundTrips) {
  auto db = ctx_->NewDatabase();
  auto table = db->CreateTableDef("kinds");
  auto id = table->CreateField("id", dbLong);
  id->Attributes(dbAutoIncrField);
  table->Fields()->Append(id);
  struct Column {
    const char* name;
    int32_t type;
    Variant value;
  };
  const std::vector<Column> columns = {
      {"b", dbBoolean, Variant(true)},
      {"y", dbByte, Variant(uint8_t{200})},
      {"i", dbInteger, Variant(int16_t{-1234})},
      {"l", dbLong, Variant(int32_t{2000000000})},
      {"c", dbCurrency, Variant(Currency{123456789})},  // 12345.6789
      {"s", dbSingle, Variant(0.1f)},
      {"d", dbDouble, Variant(1.0 / 3.0)},
      {"t", dbDate, Variant(MakeDate({2024, 2, 29, 13, 45, 30}))},
      {"x", dbText, Variant("Köhler")},
      {"bin", dbLongBinary, Variant(std::string("\0\x01\xff", 3))},
      {"m", dbMemo, Variant(std::string(5000, 'm') + "\r\nEnde")},
      {"g", dbGUID, Variant("{6F9619FF-8B86-D011-B42D-00C04FC964FF}")},
  };
  for (const auto& c : columns) table->Fields()->Append(table->CreateField(c.name, c.type));
  db->TableDefs()->Append(table);

  auto rs = db->OpenRecordset("SELECT * FROM kinds");
  ASSERT_TRUE(rs->Updatable());
  rs->AddNew();
  for (const auto& c : columns) rs->Fields(c.name)->Value(c.value);
  rs->Update();
  rs->AddNew();  // a row of Nulls
  rs->Update();
  rs->Close();

  auto again = ctx_->Reopen(*db);
  auto read = again->OpenRecordset("SELECT * FROM kinds ORDER BY id");
  EXPECT_EQ(read->Fields("id")->Type(), dbLong);
  for (const auto& c : columns) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(read->Fields(c.name)->Type(), c.type);
    Variant v = read->Fields(c.name)->Value();
    EXPECT_EQ(v.Type(), c.value.Type());
    EXPECT_TRUE(v.SameAs(c.value));
  }
  read->MoveNext();
  for (const auto& c : columns) EXPECT_TRUE(read->Fields(c.name)->Value().IsNull()) << c.name;

  auto fields = again->TableDefs()->Item("kinds")->Fields();
  EXPECT_EQ(fields->Item("id")->Type(), dbLong);
  EXPECT_NE(fields->Item("id")->Attributes() & dbAutoIncrField, 0);
  for (const auto& c : columns) EXPECT_EQ(fields->Item(c.name)->Type(), c.type) << c.name;
}

TEST_P(EngineConformance, WrittenValuesAreConvertedToTheColumnType) {
  auto db = ctx_->NewDatabase();
  auto table = db->CreateTableDef("t");
  auto id = table->CreateField("id", dbLong);
  id->Attributes(dbAutoIncrField);
  table->Fields()->Append(id);
  table->Fields()->Append(table->CreateField("n", dbLong));
  table->Fields()->Append(table->CreateField("y", dbByte));
  table->Fields()->Append(table->CreateField("flag", dbBoolean));
  table->Fields()->Append(table->CreateField("day", dbDate));
  table->Fields()->Append(table->CreateField("txt", dbText));
  db->TableDefs()->Append(table);

  auto rs = db->OpenRecordset("SELECT * FROM t");
  rs->AddNew();
  rs->Fields("n")->Value("42");
  rs->Fields("y")->Value(2.5);  // half to even
  rs->Fields("flag")->Value(5);
  rs->Fields("day")->Value("2024-01-02");
  rs->Fields("txt")->Value(12.5);
  rs->Update();
  EXPECT_TRUE(rs->Fields("n")->Value().SameAs(Variant(42)));
  EXPECT_TRUE(rs->Fields("y")->Value().SameAs(Variant(uint8_t{2})));
  EXPECT_TRUE(rs->Fields("flag")->Value().SameAs(Variant(true)));
  EXPECT_TRUE(rs->Fields("day")->Value().SameAs(Variant(DateSerial(2024, 1, 2))));
  EXPECT_TRUE(rs->Fields("txt")->Value().SameAs(Variant("12.5")));

  // The empty text in a number column is Null; text that is no number is refused and the edit stays.
  rs->Edit();
  rs->Fields("n")->Value("");
  rs->Update();
  EXPECT_TRUE(rs->Fields("n")->Value().IsNull());
  rs->Edit();
  rs->Fields("n")->Value("abc");
  EXPECT_EQ(ErrorOf([&] { rs->Update(); }).Kind(), ErrorKind::Conversion);
  EXPECT_EQ(rs->EditMode(), dbEditInProgress);
  rs->Fields("y")->Value(300);
  rs->Fields("n")->Value(7);
  EXPECT_EQ(ErrorOf([&] { rs->Update(); }).Kind(), ErrorKind::Conversion);
  rs->CancelUpdate();
  EXPECT_EQ(rs->EditMode(), dbEditNone);
  EXPECT_TRUE(rs->Fields("n")->Value().IsNull());
}

TEST_P(EngineConformance, UpdatableOnlyWithOneTableAndItsKey) {
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
  EXPECT_FALSE(updatable("SELECT id, name, max(city) AS city FROM people"));
  EXPECT_FALSE(updatable("SELECT DISTINCT id, name FROM people"));
  EXPECT_FALSE(updatable("SELECT id, name FROM people GROUP BY name"));
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
  db->CreateQueryDef("grouped", "SELECT id, name FROM people GROUP BY name");
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

TEST_P(EngineConformance, AddNewReadsBackTheGeneratedKey) {
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

TEST_P(EngineConformance, EditAndDeleteFindTheRowByItsKey) {
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

TEST_P(EngineConformance, ParametersAndAbsolutePositionReachRowsByKey) {
  auto db = PeopleDatabase(5);
  const Variant keys[] = {Variant(4), Variant("2"), Variant("1 OR 1=1")};
  auto rs = db->OpenRecordset("SELECT * FROM people WHERE id IN (?, ?, ?) ORDER BY id", keys);
  rs->MoveLast();
  EXPECT_EQ(rs->RecordCount(), 2);  // the text key is a value, never SQL
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

TEST_P(EngineConformance, CursorMovesAndCountsLikeTheClassicEngine) {
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

TEST_P(EngineConformance, TakeRowsHandsOverEveryRowOnce) {
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

TEST_P(EngineConformance, TableCatalogueListsSystemTablesFirst) {
  auto db = ctx_->NewDatabase();
  for (const char* name : {"zeta", "Alpha", "beta"}) {
    auto t = db->CreateTableDef(name);
    t->Fields()->Append(t->CreateField("v", dbLong));
    db->TableDefs()->Append(t);
  }
  auto tables = db->TableDefs();
  ASSERT_GE(tables->Count(), 4);
  EXPECT_EQ(tables->Item(0)->Attributes(), dbSystemObject);
  std::vector<std::string> user;
  bool system_done = false;
  for (int32_t i = 0; i < tables->Count(); ++i) {
    bool system = tables->Item(i)->Attributes() == dbSystemObject;
    EXPECT_FALSE(system && system_done) << "system table after a user table";
    if (!system) {
      system_done = true;
      user.push_back(tables->Item(i)->Name());
    }
  }
  EXPECT_EQ(user, (std::vector<std::string>{"Alpha", "beta", "zeta"}));
  EXPECT_EQ(tables->Item("ALPHA")->Name(), "Alpha");
  EXPECT_EQ(ErrorOf([&] { tables->Item("nope"); }).Kind(), ErrorKind::ItemNotFound);
  EXPECT_EQ(ErrorOf([&] { tables->Item(tables->Count()); }).Kind(), ErrorKind::ItemNotFound);

  tables->Delete("BETA");
  EXPECT_EQ(db->TableDefs()->Count(), tables->Count());
  EXPECT_EQ(ErrorOf([&] { db->TableDefs()->Item("beta"); }).Kind(), ErrorKind::ItemNotFound);
  EXPECT_EQ(ErrorOf([&] { db->TableDefs()->Delete("beta"); }).Kind(), ErrorKind::ItemNotFound);
  EXPECT_EQ(ErrorOf([&] { db->TableDefs()->Delete(db->TableDefs()->Item(0)->Name()); }).Kind(),
            ErrorKind::InvalidOperation);

  auto bare = db->CreateTableDef("bare");
  auto no_fields = ErrorOf([&] { db->TableDefs()->Append(bare); });
  EXPECT_EQ(no_fields.Kind(), ErrorKind::InvalidOperation);
  EXPECT_STREQ(no_fields.what(), "No field defined--cannot append TableDef or Index.");
  auto twice = db->CreateTableDef("zeta");
  twice->Fields()->Append(twice->CreateField("v", dbLong));
  EXPECT_EQ(ErrorOf([&] { db->TableDefs()->Append(twice); }).Kind(), ErrorKind::AlreadyExists);
}

TEST_P(EngineConformance, FieldsOfAnExistingTableCanBeAddedRenamedAndDropped) {
  auto db = PeopleDatabase(2);
  auto people = db->TableDefs()->Item("people");
  auto age = people->CreateField("age", dbLong);
  people->Fields()->Append(age);
  EXPECT_TRUE(db->OpenRecordset("SELECT age FROM people")->Fields(0)->Value().IsNull());
  EXPECT_EQ(ErrorOf([&] { age->Type(dbText); }).Kind(), ErrorKind::InvalidOperation);  // already a column

  auto code = people->CreateField("code", dbText, 8);
  code->AllowZeroLength(false);
  people->Fields()->Append(code);
  EXPECT_EQ(ErrorOf([&] { db->Execute("UPDATE people SET code = '' WHERE id = 1"); }).Kind(), ErrorKind::Constraint);
  db->Execute("UPDATE people SET code = 'A1' WHERE id = 1");

  auto fields = db->TableDefs()->Item("people")->Fields();
  EXPECT_NE(fields->Item("id")->Attributes() & dbAutoIncrField, 0);
  EXPECT_EQ(fields->Item("name")->Type(), dbText);
  EXPECT_EQ(fields->Item("name")->Size(), 50);
  EXPECT_FALSE(fields->Item("code")->AllowZeroLength());
  EXPECT_TRUE(fields->Item("city")->AllowZeroLength());

  // Renaming a field renames the column.
  fields->Item("city")->Name("town");
  EXPECT_TRUE(db->OpenRecordset("SELECT town FROM people WHERE id = 1")->Fields(0)->Value().SameAs(Variant("Wien")));
  EXPECT_EQ(ErrorOf([&] { db->OpenRecordset("SELECT city FROM people"); }).Kind(), ErrorKind::NoSuchObject);

  fields->Delete("age");
  EXPECT_EQ(db->TableDefs()->Item("people")->Fields()->IndexOf("age"), -1);
  EXPECT_EQ(ErrorOf([&] { fields->Delete("age"); }).Kind(), ErrorKind::ItemNotFound);
  EXPECT_EQ(ErrorOf([&] { people->Fields()->Append(people->CreateField("name", dbText)); }).Kind(),
            ErrorKind::AlreadyExists);

  // Required fields refuse Null.
  auto strict = db->CreateTableDef("strict");
  auto must = strict->CreateField("must", dbText);
  must->Required(true);
  strict->Fields()->Append(must);
  db->TableDefs()->Append(strict);
  EXPECT_TRUE(db->TableDefs()->Item("strict")->Fields()->Item("must")->Required());
  EXPECT_EQ(ErrorOf([&] { db->Execute("INSERT INTO strict (must) VALUES (NULL)"); }).Kind(), ErrorKind::Constraint);
}

TEST_P(EngineConformance, IndexesAreCreatedPerTable) {
  auto db = PeopleDatabase(2);
  auto set_index = [&](const std::string& table, const std::string& field, bool primary) {
    auto def = db->TableDefs()->Item(table);
    auto index = def->CreateIndex("index" + field);
    index->Fields()->Append(index->CreateField(field));
    index->Primary(primary);
    def->Indexes()->Append(index);
  };
  set_index("people", "name", true);
  set_index("orders", "person", false);
  set_index("people", "id", true);  // the same name pattern on two tables is fine
  set_index("orders", "id", true);

  auto indexes = db->TableDefs()->Item("people")->Indexes();
  auto byname = indexes->Item("indexname");
  EXPECT_TRUE(byname->Primary());
  EXPECT_TRUE(byname->Unique());
  ASSERT_EQ(byname->Fields()->Count(), 1);
  EXPECT_EQ(byname->Fields()->Item(0)->Name(), "name");
  EXPECT_FALSE(db->TableDefs()->Item("orders")->Indexes()->Item("indexperson")->Unique());
  EXPECT_EQ(ErrorOf([&] { db->Execute("INSERT INTO people (name) VALUES ('Anna')"); }).Kind(), ErrorKind::Constraint);

  // An indexed column cannot be dropped until its index is gone.
  auto fields = db->TableDefs()->Item("people")->Fields();
  ErrorOf([&] { fields->Delete("name"); });
  EXPECT_EQ(db->TableDefs()->Item("people")->Fields()->IndexOf("name"), 1);
  db->TableDefs()->Item("people")->Indexes()->Delete("indexname");
  EXPECT_EQ(ErrorOf([&] { db->TableDefs()->Item("people")->Indexes()->Item("indexname"); }).Kind(),
            ErrorKind::ItemNotFound);
  db->TableDefs()->Item("people")->Fields()->Delete("name");

  auto def = db->TableDefs()->Item("orders");
  auto empty = def->CreateIndex("nothing");
  EXPECT_EQ(ErrorOf([&] { def->Indexes()->Append(empty); }).Kind(), ErrorKind::InvalidOperation);

  // A new table's primary index becomes its key.
  auto codes = db->CreateTableDef("codes");
  codes->Fields()->Append(codes->CreateField("code", dbText, 5));
  codes->Fields()->Append(codes->CreateField("label", dbText, 20));
  auto key = codes->CreateIndex("PrimaryKey");
  key->Fields()->Append(key->CreateField("code"));
  key->Primary(true);
  codes->Indexes()->Append(key);
  db->TableDefs()->Append(codes);
  EXPECT_TRUE(db->OpenRecordset("codes")->Updatable());
  db->Execute("INSERT INTO codes (code, label) VALUES ('A', 'eins')");
  EXPECT_EQ(ErrorOf([&] { db->Execute("INSERT INTO codes (code, label) VALUES ('A', 'zwei')"); }).Kind(),
            ErrorKind::Constraint);
}

TEST_P(EngineConformance, StoredQueriesAreViews) {
  auto db = PeopleDatabase(3);
  auto query = db->CreateQueryDef("from_two", "SELECT id, name FROM people WHERE id >= 2;");
  EXPECT_EQ(query->Name(), "from_two");
  auto listed = db->QueryDefs();
  ASSERT_EQ(listed->Count(), 1);
  EXPECT_EQ(listed->Item(0)->Name(), "from_two");
  EXPECT_NE(listed->Item("FROM_TWO")->SQL().find("SELECT id, name FROM people WHERE id >= 2"), std::string::npos);
  EXPECT_EQ(CountRows(*db, "from_two"), 2);
  EXPECT_EQ(CountRows(*db, "SELECT * FROM from_two"), 2);
  auto rows = query->OpenRecordset();
  EXPECT_TRUE(rows->Fields("name")->Value().SameAs(Variant("Bernd")));
  rows->Close();
  EXPECT_EQ(ErrorOf([&] { query->Execute(); }).Kind(), ErrorKind::InvalidOperation);
  query->Close();
  EXPECT_EQ(ErrorOf([&] { query->OpenRecordset(); }).Kind(), ErrorKind::Closed);
  EXPECT_EQ(CountRows(*ctx_->Reopen(*db), "from_two"), 2);  // stored: other connections see it

  listed->Item(0)->SQL("SELECT id, name FROM people WHERE id = 3");
  EXPECT_EQ(CountRows(*db, "from_two"), 1);

  EXPECT_EQ(ErrorOf([&] { db->CreateQueryDef("from_two", "SELECT 1 AS x"); }).Kind(), ErrorKind::AlreadyExists);
  EXPECT_EQ(ErrorOf([&] { db->CreateQueryDef("people", "SELECT 1 AS x"); }).Kind(), ErrorKind::AlreadyExists);
  ErrorOf([&] { db->CreateQueryDef("broken", "SELECT * FROM nowhere"); });
  EXPECT_EQ(db->QueryDefs()->Count(), 1);

  // An unnamed query definition is never stored; a temporary one lives with its connection.
  auto unnamed = db->CreateQueryDef("", "SELECT name FROM people ORDER BY id DESC");
  EXPECT_TRUE(unnamed->OpenRecordset()->Fields(0)->Value().SameAs(Variant("Clara")));
  auto action = db->CreateQueryDef("", "UPDATE people SET city = 'Graz' WHERE id = 1");
  action->Execute();
  EXPECT_EQ(CountRows(*db, "SELECT * FROM people WHERE city = 'Graz'"), 1);
  db->CreateQueryDef("DataLayer_130405", "SELECT * FROM people", true);
  EXPECT_EQ(db->QueryDefs()->Count(), 2);
  EXPECT_TRUE(db->OpenRecordset("SELECT * FROM DataLayer_130405 WHERE id = 1")->Updatable());
  EXPECT_EQ(ctx_->Reopen(*db)->QueryDefs()->Count(), 1);

  db->QueryDefs()->Delete("DataLayer_130405");
  db->QueryDefs()->Delete("From_Two");
  EXPECT_EQ(db->QueryDefs()->Count(), 0);
  EXPECT_EQ(ErrorOf([&] { db->QueryDefs()->Delete("from_two"); }).Kind(), ErrorKind::ItemNotFound);
}

TEST_P(EngineConformance, ErrorsCarryTheEngineDescription) {
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

  EXPECT_EQ(ErrorOf([&] { db->Execute("INSERT INTO people (id, name) VALUES (1, 'again')"); }).Kind(),
            ErrorKind::Constraint);
  auto odd = db->CreateTableDef("odd");
  EXPECT_EQ(ErrorOf([&] { odd->Fields()->Append(odd->CreateField("x", 99)); }).Kind(), ErrorKind::InvalidOperation);
}

TEST_P(EngineConformance, TransactionsAndSavepoints) {
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

TEST_P(EngineConformance, ClosingTheDatabaseEndsItsRecordsets) {
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

TEST_P(EngineConformance, LockedDatabaseWaitsThenFailsClearly) {
  DBEngine::Default()->BusyTimeout(200);
  auto db = PeopleDatabase(1);
  auto other = ctx_->Reopen(*db);
  other->BeginTrans();
  other->Execute("INSERT INTO people (name) VALUES ('locking')");
  auto start = std::chrono::steady_clock::now();
  auto busy = ErrorOf([&] { db->Execute("INSERT INTO people (name) VALUES ('waiting')"); });
  double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(busy.Kind(), ErrorKind::Busy);
  EXPECT_NE(busy.Description().find("locked by another connection"), std::string::npos) << busy.what();
  EXPECT_GE(waited, 0.15);
  EXPECT_LT(waited, 5.0);
  other->Rollback();
  db->Execute("INSERT INTO people (name) VALUES ('waiting')");
  EXPECT_EQ(CountRows(*db, "people"), 2);
}

TEST_P(EngineConformance, OpeningFilesReportsClearErrors) {
  if (!ctx_->FileBased()) GTEST_SKIP() << "databases of this backend are not files";
  auto engine = DBEngine::Default();
  std::string missing = ctx_->NewPath("missing.db");
  auto not_found = ErrorOf([&] { engine->OpenDatabase(missing); });
  EXPECT_EQ(not_found.Kind(), ErrorKind::FileNotFound);
  EXPECT_EQ(not_found.Description(), "Could not find file '" + missing + "'.");

  std::string text = ctx_->NewPath("notes.txt");
  std::ofstream(text) << "just some text, long enough to look like a header of something";
  auto foreign = ErrorOf([&] { engine->OpenDatabase(text); });
  EXPECT_EQ(foreign.Kind(), ErrorKind::NotADatabase);
  EXPECT_EQ(foreign.Description(), "Unrecognized database format '" + text + "'.");
  std::string empty = ctx_->NewPath("empty.db");
  std::ofstream(empty).flush();
  EXPECT_EQ(ErrorOf([&] { engine->OpenDatabase(empty); }).Kind(), ErrorKind::NotADatabase);
  EXPECT_EQ(ErrorOf([&] { engine->OpenDatabase(ctx_->NewPath("")); }).Kind(), ErrorKind::NotADatabase);

  std::string jet = ctx_->NewPath("old.mdb");
  std::ofstream(jet, std::ios::binary) << std::string("\0\x01\0\0Standard Jet DB\0", 20) << std::string(200, '\0');
  auto unsupported = ErrorOf([&] { engine->OpenDatabase(jet); });
  EXPECT_EQ(unsupported.Kind(), ErrorKind::NotSupported);
  EXPECT_NE(unsupported.Description().find("not supported yet"), std::string::npos);
  EXPECT_EQ(ErrorOf([&] { engine->OpenDatabase(std::string(QUORBEX_SHARED_DATA) + "/ASampleDatabase.accdb"); }).Kind(),
            ErrorKind::NotSupported);

  // A new database is a SQLite file whatever its extension; an existing file is not overwritten.
  std::string created = ctx_->NewPath("new.mdb");
  engine->CreateDatabase(created, dbLangGeneral, dbVersion40)->Close();
  EXPECT_EQ(ErrorOf([&] { engine->CreateDatabase(created); }).Kind(), ErrorKind::AlreadyExists);
  EXPECT_TRUE(engine->OpenDatabase(created)->IsOpen());
  EXPECT_EQ(ErrorOf([&] { engine->CreateDatabase(ctx_->NewPath("no/such/folder.db")); }).Kind(), ErrorKind::General);

  // Read-only: opened so, or write-protected on disk.
  auto db = PeopleDatabase(1);
  std::string path = db->Name();
  db->Close();
  auto reader = engine->OpenDatabase(path, false, true);
  EXPECT_FALSE(reader->Updatable());
  EXPECT_EQ(ErrorOf([&] { reader->Execute("DELETE FROM people"); }).Kind(), ErrorKind::ReadOnly);
  reader->Close();
  if (::geteuid() != 0) {  // the superuser may write anything
    ::chmod(path.c_str(), 0444);
    auto protected_db = engine->OpenDatabase(path);
    EXPECT_FALSE(protected_db->Updatable());
    EXPECT_EQ(ErrorOf([&] { protected_db->Execute("DELETE FROM people"); }).Kind(), ErrorKind::ReadOnly);
    protected_db->Close();
    ::chmod(path.c_str(), 0644);
  }

  // Exclusive use keeps other connections out.
  DBEngine::Default()->BusyTimeout(100);
  auto exclusive = engine->OpenDatabase(path, true);
  EXPECT_EQ(ErrorOf([&] { engine->OpenDatabase(path)->OpenRecordset("people"); }).Kind(), ErrorKind::Busy);
  exclusive->Close();
  EXPECT_EQ(CountRows(*engine->OpenDatabase(path), "people"), 1);
}

TEST_P(EngineConformance, CompactionShrinksAFileAfterDeletes) {
  if (!ctx_->FileBased()) GTEST_SKIP() << "databases of this backend are not files";
  auto db = PeopleDatabase(0);
  db->BeginTrans();
  for (int i = 0; i < 2000; ++i) {
    db->Execute("INSERT INTO people (name, city) VALUES ('" + std::to_string(i) + "', '" + std::string(400, 'x') + "')");
  }
  db->CommitTrans();
  db->Execute("DELETE FROM people WHERE id > 10");
  std::string path = db->Name();
  db->Close();
  long long before = ctx_->SizeOf(path);

  std::string compacted = ctx_->NewPath("compacted.db");
  auto engine = DBEngine::Default();
  engine->CompactDatabase(path, compacted);
  long long after = ctx_->SizeOf(compacted);
  EXPECT_LT(after * 4, before) << before << " -> " << after;
  EXPECT_EQ(CountRows(*engine->OpenDatabase(compacted), "people"), 10);

  EXPECT_EQ(ErrorOf([&] { engine->CompactDatabase(path, compacted); }).Kind(), ErrorKind::AlreadyExists);
  EXPECT_EQ(ErrorOf([&] { engine->CompactDatabase(ctx_->NewPath("none.db"), ctx_->NewPath("x.db")); }).Kind(),
            ErrorKind::FileNotFound);

  // In use: another connection holds a lock.
  engine->BusyTimeout(100);
  auto user = engine->OpenDatabase(path);
  user->BeginTrans();
  user->Execute("DELETE FROM people WHERE id = 1");
  std::string blocked = ctx_->NewPath("blocked.db");
  EXPECT_EQ(ErrorOf([&] { engine->CompactDatabase(path, blocked); }).Kind(), ErrorKind::Busy);
  EXPECT_EQ(ctx_->SizeOf(blocked), -1);  // nothing left behind
  user->Rollback();
  engine->CompactDatabase(path, blocked);
  EXPECT_EQ(CountRows(*engine->OpenDatabase(blocked), "people"), 10);
}

INSTANTIATE_TEST_SUITE_P(Backends, EngineConformance, ::testing::ValuesIn(AllContexts()),
                         [](const ::testing::TestParamInfo<ContextFactory>& info) { return info.param.name; });

}  // namespace
}  // namespace quorbex::db::test
