// What every backend's schema objects do: the table catalogue, fields, indexes and stored queries.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "db/conformance_fixture.h"

namespace quorbex::db::test {
namespace {

using EngineSchema = EngineConformance;

TEST_P(EngineSchema, TableCatalogueListsSystemTablesFirst) {
  REQUIRE_WRITABLE(Feature::SchemaChanges);
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

TEST_P(EngineSchema, FieldsOfAnExistingTableCanBeAddedRenamedAndDropped) {
  REQUIRE_WRITABLE(Feature::SchemaChanges);
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

  // Renaming a field renames the column, also for a query text that ran before the change.
  EXPECT_EQ(db->OpenRecordset("people")->Fields()->IndexOf("city"), 2);
  fields->Item("city")->Name("town");
  EXPECT_EQ(db->OpenRecordset("people")->Fields()->IndexOf("town"), 2);
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

TEST_P(EngineSchema, IndexesAreCreatedPerTable) {
  REQUIRE_WRITABLE(Feature::SchemaChanges);
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
  ErrorOf([&] { set_index("orders", "no_such_column", false); });  // refused, not indexing a constant
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

TEST_P(EngineSchema, StoredQueriesAreViews) {
  REQUIRE_WRITABLE(Feature::StoredQueries, Feature::TemporaryQueries);
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
  // Mixed-case names are quoted: a server folds unquoted names to lower case.
  EXPECT_TRUE(db->OpenRecordset("SELECT * FROM " + db->QuoteName("DataLayer_130405") + " WHERE id = 1")->Updatable());
  EXPECT_EQ(ctx_->Reopen(*db)->QueryDefs()->Count(), 1);

  db->QueryDefs()->Delete("DataLayer_130405");
  db->QueryDefs()->Delete("From_Two");
  EXPECT_EQ(db->QueryDefs()->Count(), 0);
  EXPECT_EQ(ErrorOf([&] { db->QueryDefs()->Delete("from_two"); }).Kind(), ErrorKind::ItemNotFound);
}

INSTANTIATE_TEST_SUITE_P(Backends, EngineSchema, ::testing::ValuesIn(AllContexts()), ContextTestName);

}  // namespace
}  // namespace quorbex::db::test
