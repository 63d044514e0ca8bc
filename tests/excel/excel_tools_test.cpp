// ExcelTools, clsNames and the DataLayer's spreadsheet output and import: the logic against an
// in-memory application, then everything against the real application (LibreOffice), one instance
// shared by the tests of this program, on .ods and .xlsx workbooks the tests make.
#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "platform/message_box.h"
#include "platform/settings.h"
#include "platform/spreadsheet/spreadsheet.h"
#include "quorbex/DataLayer.h"
#include "quorbex/ExcelTools.h"
#include "quorbex/clsNames.h"
#include "service/thread_state.h"
#include "support/fake_spreadsheet.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"
#include "support/virtual_table.h"
#ifdef QUORBEX_HAVE_LIBREOFFICE
#include "platform/spreadsheet/uno/uno_spreadsheet.h"
#endif

namespace quorbex::test {

using namespace quorbex::internal;

namespace {

constexpr const char* kNotLoaded = "Workbook not loaded. Please open Workbook before requesting Object!";
constexpr const char* kNoNames = "Es wurden keine Namen gefunden in diesem Workbook!";

class ExcelFake : public ::testing::Test {
 protected:
  void SetUp() override {
    State() = ThreadState{};
    Locale::SetCurrent(Locale::C());
    starter_ = std::make_shared<FakeSpreadsheetStarter>();
    starter_scope_ = std::make_unique<platform::SpreadsheetStarterScope>(starter_);
    settings_scope_ = std::make_unique<platform::SettingsScope>(std::make_shared<MemorySettingsStore>());
    box_scope_ = std::make_unique<platform::MessageBoxScope>(std::make_shared<FakeMessageBox>());
  }
  void TearDown() override { State() = ThreadState{}; }

  std::shared_ptr<FakeSpreadsheetStarter> starter_;
  std::unique_ptr<platform::SpreadsheetStarterScope> starter_scope_;
  std::unique_ptr<platform::SettingsScope> settings_scope_;
  std::unique_ptr<platform::MessageBoxScope> box_scope_;
  TempDir dir_;
};

TEST_F(ExcelFake, WorkbookLifeAndApplicationOwnership) {
  auto tools = std::make_shared<ExcelTools>();
  EXPECT_EQ(tools->WBObject(), nullptr);
  EXPECT_EQ(tools->ErrorStatus, kNotLoaded);
  EXPECT_EQ(tools->Names()->Count(), 0);
  EXPECT_EQ(starter_->state->started, 0);  // nothing starts the application but a workbook

  starter_->state->open_failure = "the file 'x.xlsx' does not exist";
  EXPECT_FALSE(tools->WBOpen("x.xlsx"));
  EXPECT_EQ(tools->ErrorStatus, "WBOpen: the file 'x.xlsx' does not exist");
  EXPECT_FALSE(tools->IsWorkbookOpen());
  tools->ClearErr();
  EXPECT_EQ(tools->ErrorStatus, "");

  ASSERT_TRUE(tools->WBNew());
  EXPECT_TRUE(tools->IsWorkbookOpen());
  EXPECT_EQ(starter_->state->started, 1);  // the application of the failed open is used again
  auto book = starter_->last->last_new;
  tools->WBClose(true, true);  // kept open
  EXPECT_TRUE(book->closed && book->saved);
  EXPECT_TRUE(starter_->last->Running());
  EXPECT_FALSE(tools->IsWorkbookOpen());
  ASSERT_TRUE(tools->WBNew());
  tools->WBClose();
  EXPECT_FALSE(starter_->last->last_new->saved);
  EXPECT_FALSE(starter_->last->Running());

  ASSERT_TRUE(tools->WBNew());
  auto app = starter_->last;
  tools.reset();  // the end of the object ends the application it started
  EXPECT_FALSE(app->Running());
}

TEST_F(ExcelFake, MacrosAndNames) {
  auto tools = std::make_shared<ExcelTools>();
  EXPECT_FALSE(tools->InjectMacroByString("Sub A()\nEnd Sub"));
  EXPECT_EQ(tools->ErrorStatus, "InjectMacroByString: no workbook is open");
  ASSERT_TRUE(tools->WBNew());
  EXPECT_FALSE(tools->InjectMacroByFile(dir_.File("missing.bas")));
  EXPECT_EQ(tools->ErrorStatus, "InjectMacroByFile: Path '" + dir_.File("missing.bas") + "' existiert nicht!");
  WriteBytes(dir_.File("m.bas"), "Sub FromFile()\nEnd Sub\n");
  EXPECT_TRUE(tools->InjectMacroByFile(dir_.File("m.bas")));
  EXPECT_TRUE(tools->InjectMacroByString("Sub FromText()\nEnd Sub\n"));
  EXPECT_EQ(starter_->state->modules, (std::vector<std::string>{"Sub FromFile()\nEnd Sub\n", "Sub FromText()\nEnd Sub\n"}));
  tools->ClearErr();
  tools->RunMacro("Nope");
  EXPECT_EQ(tools->ErrorStatus, "the macro 'Nope' does not exist in the workbook");

  auto names = tools->Names();
  EXPECT_EQ(names->Parent(), tools);
  EXPECT_EQ(names->List()->Count(), 0);
  EXPECT_EQ(tools->ErrorStatus, kNoNames);
  auto book = starter_->last->last_new;
  book->names["Rate"] = "0.25";
  book->names["Data"] = "Sheet1!$A$1:$B$2";
  CellBlock cells(1, 1);
  cells.Item(1, 1) = Variant(7.0);
  book->WriteCells("Sheet1", 1, 1, cells);
  tools->ClearErr();
  auto list = names->List();
  ASSERT_EQ(list->Count(), 2);
  EXPECT_EQ(list->Item(1), "Data");
  EXPECT_EQ(names->Count(), 2);
  EXPECT_EQ(names->SourceRange("Data"), "Sheet1!$A$1:$B$2");
  EXPECT_EQ(CDbl(names->ValueOfName("Data")), 7.0);
  EXPECT_EQ(tools->ErrorStatus, "");
  EXPECT_TRUE(names->ValueOfName("Nope").IsEmpty());
  EXPECT_EQ(tools->ErrorStatus, "Name Nope hat einen Fehler verursacht. Bitte prüfen Sie den Bezug!");
  EXPECT_EQ(names->SourceRange("Nope"), "");
  EXPECT_EQ(tools->ErrorStatus, "SourceRange: the name 'Nope' does not exist in the workbook");
}

TEST_F(ExcelFake, VisualizeSplitsSheetsAndImportBuildsTable) {
  starter_->state->max_rows = 3;  // a header and two records per sheet
  auto layer = MakeVirtualTable("ID;Name;Amount", {{Variant(int32_t(1)), Variant(std::string("a")), Variant(1.5)},
                                                  {Variant(int32_t(2)), Variant(std::string("b")), Variant()},
                                                  {Variant(int32_t(3)), Variant(std::string("c")), Variant(true)}});
  ASSERT_TRUE(layer->VisualizeToExcel()) << layer->ErrorStatus();
  auto book = starter_->last->last_new;
  EXPECT_EQ(book->order, (std::vector<std::string>{"Sheet1", "Sheet2"}));
  EXPECT_EQ(starter_->state->writes, 2);  // one bulk write per sheet
  EXPECT_EQ(CStr(book->ReadCells("Sheet2", 1, 1, 2, 3).Item(2, 2)), "c");
  EXPECT_EQ(CStr(book->ReadCells("Sheet1", 1, 1, 1, 3).Item(1, 3)), "Amount");

  // Import: a header with an empty name and one holding ";", no ID column.
  auto file = std::make_shared<FakeWorkbook>(starter_->state);
  CellBlock table(3, 3);
  table.Item(1, 1) = Variant(std::string("Name"));
  table.Item(1, 3) = Variant(std::string("a;b"));
  table.Item(2, 1) = Variant(std::string("x"));
  table.Item(2, 3) = Variant(DateSerial(2024, 1, 2));
  table.Item(3, 2) = Variant(2.5);
  file->WriteCells("Sheet1", 1, 1, table);
  file->names["Part"] = "Sheet1!$A$1:$A$2";
  starter_->files["t.xlsx"] = file;
  auto imported = std::make_shared<DataLayer>();
  ASSERT_TRUE(imported->ImportExcelTable("t.xlsx")) << imported->ErrorStatus();
  EXPECT_EQ(imported->RecordCount(), 2);
  EXPECT_EQ(imported->FieldID("ID"), 1);
  EXPECT_EQ(imported->FieldID("Field2"), 3);
  imported->MoveFirst();
  EXPECT_EQ(CStr(imported->FieldValue("Name")), "x");
  EXPECT_EQ(imported->FieldValue("a;b").Type(), VarType::Date);
  EXPECT_EQ(CStr(imported->FieldValue("ID")).size(), 32u);
  EXPECT_TRUE(imported->DataChanged());
  EXPECT_FALSE(imported->ImportExcelTable("t.xlsx"));
  EXPECT_NE(imported->ErrorStatus().find("ImportExcelTable: this DataLayer holds a table already"), std::string::npos);

  auto by_name = std::make_shared<DataLayer>();
  ASSERT_TRUE(by_name->ImportExcelTable("t.xlsx", "Part"));
  EXPECT_EQ(by_name->RecordCount(), 1);
  auto missing = std::make_shared<DataLayer>();
  EXPECT_FALSE(missing->ImportExcelTable("t.xlsx", "Nowhere"));
  EXPECT_NE(missing->ErrorStatus().find("'Nowhere' is neither a sheet nor a defined name of the workbook"),
            std::string::npos);
}

}  // namespace
}  // namespace quorbex::test
