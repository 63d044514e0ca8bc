#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quorbex/DataLayer.h"
#include "quorbex/clsTableManager.h"
#include "quorbex/clsUpdateDB.h"
#include "schema/schema_fixture.h"

namespace quorbex::test {
namespace {

// The bookkeeping records as "UpdateID:UpdateString".
std::vector<std::string> Bookkeeping(db::Database& database, const std::string& table = "sys_quorbexdatalayer") {
  std::vector<std::string> rows;
  auto recordset = database.OpenRecordset("SELECT " + database.QuoteName("UpdateID") + ", " + database.QuoteName("UpdateString") +
                                              " FROM " + database.QuoteName(table) +
                                          " ORDER BY id", db::dbOpenSnapshot);
  for (; !recordset->EOF_(); recordset->MoveNext()) {
    rows.push_back(CStr(recordset->Fields(0)->Value()) + ":" + CStr(recordset->Fields(1)->Value()));
  }
  return rows;
}

bool HasField(db::Database& database, const std::string& table, const std::string& field) {
  return database.TableDefs()->Item(table)->Fields()->IndexOf(field) >= 0;
}

TEST_P(SchemaPerBackend, UpdateScriptsApplyEachActionOnceAndInOrder) {
  auto manager = Manager();
  auto runner = manager->DBUpdate();
  runner->AppendUpdateAction(0, 1, "never");  // numbered 0: never applied
  runner->AppendUpdateAction(1, 1, "Kunde");
  runner->AppendUpdateAction(1, 3, "Kunde", "Name");          // no type: a text field
  runner->AppendUpdateAction(2, 3, "Kunde", "Umsatz", "7");
  runner->AppendUpdateAction(3, 5, "Kunde", "Name", "True");
  runner->UpdateDatabase();

  EXPECT_EQ(Bookkeeping(*database_),
            (std::vector<std::string>{"0:CreateTable;sys_quorbexdatalayer", "1:1;1;Kunde;;", "1:1;3;Kunde;Name;",
                                      "2:2;3;Kunde;Umsatz;7", "3:3;5;Kunde;Name;True"}));
  EXPECT_EQ(manager->GetFieldTypeEnum("Kunde", "Name"), db::dbText);
  EXPECT_EQ(manager->GetFieldTypeEnum("Kunde", "Umsatz"), db::dbDouble);
  EXPECT_TRUE(database_->TableDefs()->Item("Kunde")->Indexes()->Item("indexName")->Primary());
  EXPECT_EQ(database_->TableDefs()->Item("sys_quorbexdatalayer")->Indexes()->Item("indexid")->Primary(), true);
  const auto tables = manager->TableList();
  for (const std::string& name : *tables) EXPECT_NE(name, "never");
  EXPECT_EQ(box_->Count(), 0u);

  // A second run of the same list finds nothing new; a later action joins it.
  runner->UpdateDatabase();
  EXPECT_EQ(Bookkeeping(*database_).size(), 5u);
  runner->AppendUpdateAction(4, 4, "Kunde", "Umsatz");
  runner->UpdateDatabase();
  EXPECT_EQ(Bookkeeping(*database_).back(), "4:4;4;Kunde;Umsatz;");
  EXPECT_FALSE(HasField(*database_, "Kunde", "Umsatz"));

  // A fresh runner on the same database (the next start of the application) applies nothing again.
  auto later = std::make_shared<clsUpdateDB>();
  later->Parent(manager);
  later->AppendUpdateAction(1, 1, "Kunde");
  later->AppendUpdateAction(4, 4, "Kunde", "Umsatz");
  later->UpdateDatabase();
  EXPECT_EQ(Bookkeeping(*database_).size(), 6u);
  EXPECT_EQ(box_->Count(), 0u);
}

TEST_P(SchemaPerBackend, AFailingActionStopsTheRunUnrecorded) {
  auto manager = Manager();
  auto runner = manager->DBUpdate();
  runner->AppendUpdateAction(1, 1, "Artikel");
  runner->AppendUpdateAction(2, 4, "Artikel", "");  // remove field without a field name
  runner->AppendUpdateAction(3, 3, "Artikel", "Preis", "5");
  runner->UpdateDatabase("Meine Updates");  // another bookkeeping table, with a blank in its name

  EXPECT_EQ(Bookkeeping(*database_, "Meine Updates"),
            (std::vector<std::string>{"0:CreateTable;sys_quorbexdatalayer", "1:1;1;Artikel;;"}));
  EXPECT_FALSE(HasField(*database_, "Artikel", "Preis")) << "nothing after the failure is applied";
  ASSERT_EQ(box_->Count(), 2u);
  const auto prompts = box_->Prompts();
  EXPECT_EQ(prompts[0].text.rfind("Ein Datenbank-Update hat einen Fehler verursacht: ", 0), 0u) << prompts[0].text;
  EXPECT_EQ(prompts[0].style & 0x70, 0) << "no icon";
  EXPECT_EQ(prompts[1].title, "Fehler im Database-Update");
  EXPECT_EQ(prompts[1].text,
            "Ein Fehler wurde im Datenbank-Update festgestellt. Die Datenbank kann nicht weiter angepasst werden.\r\n"
            "Bitte konsultieren Sie den Software-Hersteller!");
  EXPECT_EQ(prompts[1].style & 0x70, platform::vbCritical);

  // A failing engine call (a field that is not there) stops the run the same way, with one message.
  auto second = std::make_shared<clsUpdateDB>();
  second->Parent(manager);
  second->AppendUpdateAction(5, 4, "Artikel", "Fehlt");
  second->AppendUpdateAction(6, 2, "Artikel");
  second->AppendUpdateAction(7, 9, "Artikel");  // an unknown code fails too
  second->UpdateDatabase("Meine Updates");
  EXPECT_EQ(Bookkeeping(*database_, "Meine Updates").size(), 2u);
  EXPECT_TRUE(database_->TableDefs()->Item("Artikel") != nullptr);
  EXPECT_EQ(box_->Count(), 3u);
  EXPECT_FALSE(manager->ErrorStatus.empty()) << "the engine's text stays with the table manager";
}

}  // namespace
}  // namespace quorbex::test
