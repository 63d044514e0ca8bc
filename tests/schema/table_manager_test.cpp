#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "quorbex/DataLayer.h"
#include "quorbex/clsTableManager.h"
#include "quorbex/clsUpdateDB.h"
#include "quorbex/errors.h"
#include "schema/schema_fixture.h"
#include "support/error_of.h"

namespace quorbex::test {
namespace {

std::vector<std::string> Items(const Collection<std::string>& collection) {
  return std::vector<std::string>(collection.begin(), collection.end());
}

bool Contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

TEST(clsTableManager, EveryMemberButTheCreatorsNeedsABoundDatabase) {
  internal::State() = internal::ThreadState{};
  platform::SettingsScope settings_scope(std::make_shared<MemorySettingsStore>());  // no "DBPath"
  auto manager = std::make_shared<clsTableManager>();
  try {
    manager->TableList();
    FAIL() << "no error raised";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), 40000);
    EXPECT_EQ(e.Source(), "QuorbexDataLayer.clsTableManager");
    EXPECT_EQ(e.Description(), "No Database set! You must either start the DataLayer itself or open Database first!");
  }
  for (auto call : std::vector<std::function<void()>>{
           [&] { manager->RenameField("t", "a", "b"); }, [&] { manager->RemoveField("t", "a"); },
           [&] { manager->AppendField("t", "a", 10); }, [&] { manager->SetIndex("t", "a"); },
           [&] { manager->DeleteTable("t"); }, [&] { manager->DeleteQueryDef("q"); },
           [&] { manager->GetFieldType("t", "a"); }, [&] { manager->GetFieldTypeEnum("t", "a"); },
           [&] { manager->ListQueryFields("q"); }, [&] { manager->DBUpdate(); }, [&] { manager->CompactDB(); }}) {
    EXPECT_EQ(ErrorOf(call), 40000);
  }
  // The creators do not check; without a database they simply fail.
  EXPECT_FALSE(manager->CreateTable("t"));
  EXPECT_FALSE(manager->CreateQueryDef("q", Variant(std::string("select 1"))));
  manager->DBExecute("delete from t");
  EXPECT_EQ(manager->ErrorStatus, "Object variable or With block variable not set");
  internal::State() = internal::ThreadState{};
}

TEST_P(SchemaPerBackend, TablesFieldsAndIndexesThroughTheTableManager) {
  auto manager = Manager();
  // A name that would break SQL if it were pasted in unquoted.
  const std::string table = "Kunden 'Müller' [alt] \"x\"";
  ASSERT_TRUE(manager->CreateTable(table));
  EXPECT_EQ(database_->TableDefs()->Item(table)->Fields()->Item("id")->Attributes() & db::dbAutoIncrField,
            db::dbAutoIncrField);

  ASSERT_TRUE(manager->AppendField(table, "Zähler", 32));
  ASSERT_TRUE(manager->AppendField(table, "Name", db::dbText));
  ASSERT_TRUE(manager->AppendField(table, "Notiz", db::dbMemo));
  ASSERT_TRUE(manager->AppendField(table, "Seit", db::dbDate));
  ASSERT_TRUE(manager->AppendField(table, "Aktiv", db::dbBoolean));
  ASSERT_TRUE(manager->AppendField(table, "Betrag", db::dbDouble));
  ASSERT_TRUE(manager->AppendField(table, "Preis", db::dbCurrency));
  auto fields = database_->TableDefs()->Item(table)->Fields();
  EXPECT_EQ(fields->Item("Zähler")->Type(), db::dbLong);
  EXPECT_TRUE(fields->Item("Name")->AllowZeroLength());
  EXPECT_FALSE(fields->Item("Name")->Required());

  EXPECT_EQ(manager->GetFieldType(table, "Zähler"), "zahl");
  EXPECT_EQ(manager->GetFieldType(table, "Name"), "text");
  EXPECT_EQ(manager->GetFieldType(table, "Notiz"), "memo");
  EXPECT_EQ(manager->GetFieldType(table, "Seit"), "datum");
  EXPECT_EQ(manager->GetFieldType(table, "Aktiv"), "bool");
  EXPECT_EQ(manager->GetFieldType(table, "Betrag"), "");
  EXPECT_EQ(manager->GetFieldType(table, "Preis"), "");
  EXPECT_EQ(manager->GetFieldTypeEnum(table, "Betrag"), db::dbDouble);
  EXPECT_EQ(manager->GetFieldTypeEnum(table, "Preis"), db::dbCurrency);
  EXPECT_EQ(box_->Count(), 0u);

  // A type code the engine does not know is refused with a text that names it.
  EXPECT_FALSE(manager->AppendField(table, "Rätsel", 99));
  EXPECT_NE(manager->ErrorStatus.find("99"), std::string::npos) << manager->ErrorStatus;

  ASSERT_TRUE(manager->SetIndex(table, "Name", true));
  auto index = database_->TableDefs()->Item(table)->Indexes()->Item("indexName");
  EXPECT_TRUE(index->Primary());
  EXPECT_EQ(index->Fields()->Item(0)->Name(), "Name");
  EXPECT_FALSE(manager->SetIndex(table, "Fehlt"));

  ASSERT_TRUE(manager->RenameField(table, "Notiz", "Bemerkung"));
  EXPECT_EQ(manager->GetFieldType(table, "Bemerkung"), "memo") << (box_->Count() ? box_->Prompts().back().text : "");
  ASSERT_TRUE(manager->RemoveField(table, "Betrag"));
  EXPECT_EQ(database_->TableDefs()->Item(table)->Fields()->IndexOf("Betrag"), -1);

  // The table is looked up by its exact name: another letter case finds nothing.
  manager->ErrorStatus.clear();
  EXPECT_FALSE(manager->RemoveField("kunden 'müller' [alt] \"x\"", "Name"));
  EXPECT_NE(manager->ErrorStatus.find("Item not found"), std::string::npos) << manager->ErrorStatus;
  EXPECT_FALSE(manager->RenameField("nope", "Name", "X"));
  EXPECT_FALSE(manager->AppendField("nope", "X", db::dbText));

  auto tables = Items(*manager->TableList());
  ASSERT_FALSE(tables.empty());
  EXPECT_NE(tables.front(), table) << "the engine's own table comes first";
  EXPECT_TRUE(Contains(tables, table));

  ASSERT_TRUE(manager->DeleteTable(table));
  EXPECT_FALSE(Contains(Items(*manager->TableList()), table));
  EXPECT_FALSE(manager->DeleteTable(table));
  EXPECT_FALSE(manager->ErrorStatus.empty());
}

TEST_P(SchemaPerBackend, QueriesStatementsAndFieldLists) {
  auto manager = Manager();
  ASSERT_TRUE(manager->CreateTable("orders"));
  ASSERT_TRUE(manager->AppendField("orders", "amount", db::dbDouble));
  manager->DBExecute("INSERT INTO orders (amount) VALUES (12.5)");
  EXPECT_EQ(manager->ErrorStatus, "");
  manager->DBExecute("INSERT INTO missing_table (x) VALUES (1)");
  EXPECT_FALSE(manager->ErrorStatus.empty());

  ASSERT_TRUE(manager->CreateQueryDef("big orders", Variant(std::string("SELECT id, amount FROM orders WHERE amount > 10"))));
  EXPECT_FALSE(manager->CreateQueryDef("big orders", Variant(std::string("SELECT 1"))));
  EXPECT_EQ(manager->GetFieldType("big orders", "id"), "zahl");

  EXPECT_EQ(Items(*manager->ListQueryFields("SELECT id, amount * 2 AS twice FROM orders")),
            (std::vector<std::string>{"orders.id", "twice"}));
  EXPECT_EQ(manager->ListQueryFields("big orders")->Count(), 2);
  EXPECT_EQ(manager->ListQueryFields("SELECT nothing FROM nowhere")->Count(), 0);

  ASSERT_TRUE(manager->DeleteQueryDef("big orders"));
  EXPECT_FALSE(manager->DeleteQueryDef("big orders"));

  // A failed look-up shows its message and gives the empty text.
  EXPECT_EQ(manager->GetFieldType("orders", "no_such_field"), "");
  ASSERT_EQ(box_->Count(), 1u);
  EXPECT_EQ(box_->Prompts()[0].title, "Quorbex DataLayer:clsTableManager");
  EXPECT_EQ(box_->Prompts()[0].text.rfind("Fehler in der Funktion GetFieldType: \r\n", 0), 0u);

  EXPECT_EQ(manager->DBUpdate(), manager->DBUpdate());
  EXPECT_EQ(manager->DBUpdate()->Parent(), manager);
}

INSTANTIATE_TEST_SUITE_P(Backends, SchemaPerBackend, ::testing::ValuesIn(db::test::WritableContexts()),
                         db::test::ContextTestName);

// Database files: creation, the binding the table manager shares with DataLayer, and its end.
TEST_F(SchemaFiles, CreateDatabaseBindingAndEnd) {
  {
    auto manager = std::make_shared<clsTableManager>();
    EXPECT_FALSE(manager->CreateDatabase(""));
    EXPECT_EQ(manager->ErrorStatus, "CreateDatabase: No filename stated");
    manager->ErrorStatus.clear();
    EXPECT_FALSE(manager->CreateDatabase(dir_.File("shop.sqlite")));
    EXPECT_EQ(manager->ErrorStatus, "CreateDatabase: No filename stated");
    EXPECT_FALSE(internal::State().database_set);

    manager->ErrorStatus.clear();
    ASSERT_TRUE(manager->CreateDatabase(dir_.File("shop.mdb")));
    EXPECT_EQ(manager->ErrorStatus, "") << "a success leaves no text";
    EXPECT_EQ(ReadBytes(dir_.File("shop.mdb")).substr(0, 15), "SQLite format 3");
    EXPECT_TRUE(manager->CreateTable("customers"));
    // Ends without KeepDBOpen: the thread's database is closed and unbound.
  }
  EXPECT_FALSE(internal::State().database_set);
  EXPECT_EQ(internal::State().current_database, nullptr);

  {
    // An existing file is not created again, but opened.
    auto manager = std::make_shared<clsTableManager>();
    EXPECT_TRUE(manager->CreateDatabase(dir_.File("shop.mdb")));
    EXPECT_EQ(manager->ErrorStatus, "CreateDatabase: Database exists already");
    EXPECT_EQ(manager->GetFieldType("customers", "id"), "zahl");
    manager->KeepDBOpen = true;
  }
  ASSERT_TRUE(internal::State().database_set);
  internal::State() = internal::ThreadState{};

  // A DataLayer's binding serves the table manager at once, and the other way round.
  auto layer = std::make_shared<DataLayer>();
  layer->SetDatabaseByPath(dir_.File("shop.mdb"));
  auto manager = std::make_shared<clsTableManager>();
  EXPECT_EQ(manager->GetFieldTypeEnum("customers", "id"), db::dbLong);
  manager->SetDatabaseByPath(dir_.File("missing.mdb"));
  EXPECT_EQ(manager->ErrorStatus.rfind("Fehler beim Öffnen der angegebenen Datenbank: ", 0), 0u);
  EXPECT_EQ(manager->GetFieldTypeEnum("customers", "id"), db::dbLong) << "a failed open keeps the binding";
}

TEST_F(SchemaFiles, CreationBindsTheDatabaseOfTheSettings) {
  {
    auto manager = std::make_shared<clsTableManager>();
    ASSERT_TRUE(manager->CreateDatabase(dir_.File("stored.mdb")));
    ASSERT_TRUE(manager->CreateTable("from_settings"));
  }
  settings_->Save("Quorbex DataLayer", "Settings", "DBPath", dir_.File("stored.mdb"));
  settings_->Save("Quorbex DataLayer", "Settings", "Username", "anna");
  auto manager = std::make_shared<clsTableManager>();
  EXPECT_TRUE(internal::State().database_set);
  EXPECT_EQ(db::DBEngine::Default()->DefaultUser(), "anna");
  const auto tables = Items(*manager->TableList());
  EXPECT_TRUE(Contains(tables, "from_settings"));
}

}  // namespace
}  // namespace quorbex::test
