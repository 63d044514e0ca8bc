// ExcelTools, clsNames and the DataLayer's spreadsheet output and import against the real spreadsheet
// application. One instance is started for this test program and shared by its tests (through a
// starter whose Quit leaves it running); the process tests start their own. At the end the program
// checks that no office process it started is left.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
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
#include "support/platform_fakes.h"
#include "support/temp_dir.h"
#include "support/virtual_table.h"
#ifdef QUORBEX_HAVE_LIBREOFFICE
#include "platform/spreadsheet/uno/uno_spreadsheet.h"
#endif

namespace quorbex::test {

using namespace quorbex::internal;

namespace {

#ifdef QUORBEX_HAVE_LIBREOFFICE

// Offices whose profile this process made ("quorbex-office-<pid>-..." on their command line).
std::vector<pid_t> OurOffices() {
  const std::string mark = "quorbex-office-" + std::to_string(getpid()) + "-";
  std::vector<pid_t> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream in(entry.path() / "cmdline");
    std::string cmdline((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (cmdline.find(mark) != std::string::npos) {
      std::ifstream stat(entry.path() / "stat");
      std::string pid, comm, state;
      stat >> pid >> comm >> state;
      if (state != "Z") found.push_back(std::stoi(name));
    }
  }
  return found;
}

bool GroupGone(pid_t group, std::chrono::seconds limit) {
  const auto until = std::chrono::steady_clock::now() + limit;
  while (kill(-group, 0) == 0) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return true;
}

std::shared_ptr<platform::SpreadsheetApplication>& Office() {
  static std::shared_ptr<platform::SpreadsheetApplication> office;
  if (!office) office = platform::StartUnoSpreadsheetApplication();
  return office;
}

// The shared instance as the library sees it: quitting only ends this view of it.
class SharedApplication : public platform::SpreadsheetApplication {
 public:
  std::shared_ptr<Workbook> Open(const std::string& path, const std::optional<std::string>& password,
                                 bool read_only) override {
    Check();
    return Office()->Open(path, password, read_only);
  }
  std::shared_ptr<Workbook> New() override {
    Check();
    return Office()->New();
  }
  bool Visible() override { return Office()->Visible(); }
  void Visible(bool value) override { Office()->Visible(value); }
  bool CanShow() override { return Office()->CanShow(); }
  void Quit() override { quit_ = true; }
  bool Running() override { return !quit_ && Office()->Running(); }

 private:
  void Check() {
    if (quit_) throw std::runtime_error("the spreadsheet application has been closed");
  }
  bool quit_ = false;
};

class SharedStarter : public platform::SpreadsheetStarter {
 public:
  std::shared_ptr<platform::SpreadsheetApplication> Start() override { return std::make_shared<SharedApplication>(); }
};

class OfficeEnvironment : public ::testing::Environment {
 public:
  void TearDown() override {
    if (auto& office = Office(); office) {
      office->Quit();
      office.reset();
    }
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!OurOffices().empty() && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_TRUE(OurOffices().empty()) << "an office process started by this test program is still running";
  }
};

class ExcelApp : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ::testing::AddGlobalTestEnvironment(new OfficeEnvironment);
  }
  void SetUp() override {
    State() = ThreadState{};
    Locale::SetCurrent(Locale::C());
    starter_scope_ = std::make_unique<platform::SpreadsheetStarterScope>(std::make_shared<SharedStarter>());
    settings_scope_ = std::make_unique<platform::SettingsScope>(std::make_shared<MemorySettingsStore>());
    box_scope_ = std::make_unique<platform::MessageBoxScope>(std::make_shared<FakeMessageBox>());
  }
  void TearDown() override { State() = ThreadState{}; }

  std::unique_ptr<platform::SpreadsheetStarterScope> starter_scope_;
  std::unique_ptr<platform::SettingsScope> settings_scope_;
  std::unique_ptr<platform::MessageBoxScope> box_scope_;
  TempDir dir_;
};

// A block of every kind a cell holds, and what each reads back as.
CellBlock TypedBlock() {
  CellBlock block(2, 6);
  block.Item(1, 1) = Variant(std::string("Ä text"));
  block.Item(1, 2) = Variant(1.25);
  block.Item(1, 3) = Variant(int32_t(7));
  block.Item(1, 4) = Variant(true);
  block.Item(1, 5) = Variant(DateSerial(2024, 2, 29));
  block.Item(1, 6) = Variant(Date{45000.25});
  block.Item(2, 1) = Variant(std::string("=1+1"));  // a text, not a formula
  block.Item(2, 3) = Variant(false);
  return block;
}

void ExpectTyped(const CellBlock& read) {
  ASSERT_EQ(read.Rows(), 2);
  ASSERT_EQ(read.Columns(), 6);
  EXPECT_EQ(read.Item(1, 1).AsString(), "Ä text");
  EXPECT_EQ(read.Item(1, 2).Type(), VarType::Double);
  EXPECT_EQ(read.Item(1, 2).AsDouble(), 1.25);
  EXPECT_EQ(read.Item(1, 3).AsDouble(), 7.0);
  EXPECT_EQ(read.Item(1, 4).Type(), VarType::Boolean);
  EXPECT_TRUE(read.Item(1, 4).AsBoolean());
  EXPECT_EQ(read.Item(1, 5).Type(), VarType::Date);
  EXPECT_EQ(read.Item(1, 5).AsDate().serial, DateSerial(2024, 2, 29).serial);
  EXPECT_NEAR(read.Item(1, 6).AsDate().serial, 45000.25, 1e-9);
  EXPECT_EQ(read.Item(2, 1).AsString(), "=1+1");
  EXPECT_TRUE(read.Item(2, 2).IsEmpty());
  EXPECT_EQ(read.Item(2, 3).Type(), VarType::Boolean);
  EXPECT_FALSE(read.Item(2, 3).AsBoolean());
}

constexpr const char* kSetupMacro =
    "Sub Setup()\n"
    "  Range(\"E5\").Value = 42\n"
    "  Dim origin As New com.sun.star.table.CellAddress\n"
    "  ThisComponent.NamedRanges.addNewByName(\"Data\", \"$Sheet1.$A$1:$B$2\", origin, 0)\n"
    "  ThisComponent.NamedRanges.addNewByName(\"Rate\", \"0.25\", origin, 0)\n"
    "End Sub\n";

TEST_F(ExcelApp, WorkbooksMacrosAndNamesOnOdsAndXlsx) {
  for (const std::string extension : {".ods", ".xlsx"}) {
    SCOPED_TRACE(extension);
    const std::string path = dir_.File("book" + extension);
    auto tools = std::make_shared<ExcelTools>();
    ASSERT_TRUE(tools->WBNew()) << tools->ErrorStatus;
    auto book = tools->WBObject();
    book->WriteCells("Sheet1", 1, 1, TypedBlock());
    EXPECT_TRUE(tools->Names()->List()->Count() == 0);
    EXPECT_EQ(tools->ErrorStatus, "Es wurden keine Namen gefunden in diesem Workbook!");
    ASSERT_TRUE(tools->InjectMacroByString(kSetupMacro)) << tools->ErrorStatus;
    tools->ClearErr();
    tools->RunMacro("Setup");
    EXPECT_EQ(tools->ErrorStatus, "");
    EXPECT_EQ(CDbl(book->ReadCells("Sheet1", 5, 5, 1, 1).Item(1, 1)), 42.0);
    book->SaveAs(path);
    tools->WBClose(false, true);
    EXPECT_EQ(tools->WBObject(), nullptr);

    ASSERT_TRUE(tools->WBOpen(path, std::nullopt, true)) << tools->ErrorStatus;
    book = tools->WBObject();
    ExpectTyped(book->ReadCells("Sheet1", 1, 1, 2, 6));
    auto names = tools->Names();
    auto list = names->List();
    ASSERT_EQ(list->Count(), 2);
    EXPECT_EQ(list->Item(1), "Data");
    EXPECT_EQ(list->Item(2), "Rate");
    EXPECT_EQ(names->Count(), 2);
    EXPECT_EQ(names->SourceRange("Data"), "Sheet1!$A$1:$B$2");
    EXPECT_EQ(CDbl(names->ValueOfName("Rate")), 0.25);
    Variant data = names->ValueOfName("Data");
    ASSERT_TRUE(data.IsObject());
    auto cells = std::dynamic_pointer_cast<CellBlock>(data.AsObject());
    ASSERT_TRUE(cells);
    EXPECT_EQ(cells->Item(1, 2).AsDouble(), 1.25);
    tools->ClearErr();
    EXPECT_TRUE(names->ValueOfName("Nope").IsEmpty());
    EXPECT_EQ(tools->ErrorStatus, "Name Nope hat einen Fehler verursacht. Bitte prüfen Sie den Bezug!");

    // The module stays with an .ods file; .xlsx files keep none.
    tools->ClearErr();
    tools->RunMacro("Module1.Setup");
    EXPECT_EQ(tools->ErrorStatus.empty(), extension == ".ods") << tools->ErrorStatus;
    tools->ClearErr();
    tools->RunMacro("NoSuchMacro");
    EXPECT_EQ(tools->ErrorStatus, "the macro 'NoSuchMacro' does not exist in the workbook");
    tools->WBClose();
  }
}

TEST_F(ExcelApp, BadInputGivesClearTexts) {
  auto tools = std::make_shared<ExcelTools>();
  EXPECT_FALSE(tools->WBOpen(dir_.File("missing.xlsx")));
  EXPECT_EQ(tools->ErrorStatus, "WBOpen: the file '" + dir_.File("missing.xlsx") + "' does not exist");
  WriteBytes(dir_.File("text.xlsx"), "just some text, no workbook\n");
  EXPECT_FALSE(tools->WBOpen(dir_.File("text.xlsx")));
  EXPECT_EQ(tools->ErrorStatus, "WBOpen: the file '" + dir_.File("text.xlsx") + "' is not a workbook");

  // A password-protected workbook: a wrong password fails at once, the right one opens it.
  ASSERT_TRUE(tools->WBNew());
  tools->WBObject()->WriteCells("Sheet1", 1, 1, TypedBlock());
  tools->WBObject()->SaveAs(dir_.File("secret.xlsx"), "right");
  tools->WBClose(false, true);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(tools->WBOpen(dir_.File("secret.xlsx"), std::string("wrong")));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_NE(tools->ErrorStatus.find("could not be opened (wrong password?)"), std::string::npos) << tools->ErrorStatus;
  ASSERT_TRUE(tools->WBOpen(dir_.File("secret.xlsx"), std::string("right"))) << tools->ErrorStatus;
  ExpectTyped(tools->WBObject()->ReadCells("Sheet1", 1, 1, 2, 6));

  // Macros from a file; a missing file; showing the application where it cannot be shown.
  WriteBytes(dir_.File("macro.bas"), "Sub Mark()\n  Range(\"A9\").Value = \"marked\"\nEnd Sub\n");
  ASSERT_TRUE(tools->InjectMacroByFile(dir_.File("macro.bas"))) << tools->ErrorStatus;
  tools->RunMacro("Mark");
  EXPECT_EQ(CStr(tools->WBObject()->ReadCells("Sheet1", 9, 1, 1, 1).Item(1, 1)), "marked");
  EXPECT_FALSE(tools->InjectMacroByFile(dir_.File("none.bas")));
  EXPECT_EQ(tools->ErrorStatus, "InjectMacroByFile: Path '" + dir_.File("none.bas") + "' existiert nicht!");
  if (!Office()->CanShow()) {
    tools->ClearErr();
    tools->ShowApp(true);
    EXPECT_EQ(tools->ErrorStatus.rfind("ShowApp: the spreadsheet application cannot be shown", 0), 0u);
  }
  tools->WBClose();

  // An application that cannot start.
  platform::SpreadsheetStarterScope real(nullptr);
  setenv("QUORBEX_SOFFICE", "/nonexistent/soffice", 1);
  auto broken = std::make_shared<ExcelTools>();
  EXPECT_FALSE(broken->WBNew());
  unsetenv("QUORBEX_SOFFICE");
  EXPECT_EQ(broken->ErrorStatus,
            "WBNew: The spreadsheet application could not be started ('/nonexistent/soffice'): the program could "
            "not be run");
}

TEST_F(ExcelApp, DataLayerRoundTripThroughWorkbook) {
  auto layer = MakeVirtualTable(
      "ID;Name;Amount;When;Flag;Note",
      {{Variant(int32_t(1)), Variant(std::string("Müller")), Variant(12.5), Variant(DateSerial(2023, 12, 31)),
        Variant(true), Variant()},
       {Variant(int32_t(2)), Variant(std::string("a;b")), Variant(Currency{-30000}), Variant(Date{45000.5}),
        Variant(false), Variant(std::string("x"))}});
  ASSERT_TRUE(layer->VisualizeToExcel()) << layer->ErrorStatus();
  auto book = layer->Excel()->WBObject();
  ASSERT_TRUE(book);
  const std::string path = dir_.File("records.xlsx");
  book->SaveAs(path);

  auto back = std::make_shared<DataLayer>();
  ASSERT_TRUE(back->ImportExcelTable(path)) << back->ErrorStatus();
  ASSERT_EQ(back->RecordCount(), 2);
  back->MoveFirst();
  EXPECT_EQ(CDbl(back->FieldValue("ID")), 1.0);
  EXPECT_EQ(back->FieldValue("Name").AsString(), "Müller");
  EXPECT_EQ(back->FieldValue("Amount").AsDouble(), 12.5);
  EXPECT_EQ(back->FieldValue("When").Type(), VarType::Date);
  EXPECT_EQ(back->FieldValue("When").AsDate().serial, DateSerial(2023, 12, 31).serial);
  EXPECT_EQ(back->FieldValue("Flag").Type(), VarType::Boolean);
  EXPECT_EQ(CStr(back->FieldValue("Note")), "");
  back->MoveNext();
  EXPECT_EQ(back->FieldValue("Name").AsString(), "a;b");
  EXPECT_EQ(back->FieldValue("Amount").AsDouble(), -3.0);
  EXPECT_NEAR(back->FieldValue("When").AsDate().serial, 45000.5, 1e-9);

  // From the workbook still open in the DataLayer's tools, by sheet; an unknown sheet or name.
  auto again = std::make_shared<DataLayer>();
  ASSERT_TRUE(again->Excel()->WBOpen(path));
  ASSERT_TRUE(again->ImportExcelTable("", "Sheet1")) << again->ErrorStatus();
  EXPECT_EQ(again->RecordCount(), 2);
  auto none = std::make_shared<DataLayer>();
  EXPECT_FALSE(none->ImportExcelTable(path, "Nowhere"));
  EXPECT_NE(none->ErrorStatus().find("ImportExcelTable: 'Nowhere' is neither a sheet nor a defined name"),
            std::string::npos);
}

// The office's process group ends on a hang (after the call's time limit) and when its client dies.
TEST(ExcelProcess, EndsOnHangAndWhenTheClientDies) {
  if (std::getenv("QUORBEX_EXCEL_CHILD_FD")) GTEST_SKIP() << "runs as the dying client only";
  {
    auto app = platform::StartUnoSpreadsheetApplication();
    const int group = platform::UnoOfficeProcessGroup(*app);
    ASSERT_GT(group, 0);
    platform::SetUnoCallLimit(*app, std::chrono::seconds(2));
    kill(-group, SIGSTOP);  // the office hangs
    try {
      app->New();
      ADD_FAILURE() << "a hanging office answered";
    } catch (const std::exception& e) {
      EXPECT_STREQ(e.what(), "the spreadsheet application did not answer within 2 s and was stopped");
    }
    EXPECT_TRUE(GroupGone(group, std::chrono::seconds(5)));
    EXPECT_FALSE(app->Running());
    app->Quit();
  }

  // A client that starts an office and dies without a word: this program run as ExcelProcess.DyingClient.
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(fds[0]);
    setenv("QUORBEX_EXCEL_CHILD_FD", std::to_string(fds[1]).c_str(), 1);
    execl("/proc/self/exe", "test_excel", "--gtest_filter=ExcelProcess.DyingClient", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  int group = -1;
  ASSERT_EQ(read(fds[0], &group, sizeof group), static_cast<ssize_t>(sizeof group));
  close(fds[0]);
  waitpid(child, nullptr, 0);
  ASSERT_GT(group, 0);
  EXPECT_TRUE(GroupGone(group, std::chrono::seconds(10)));
  // ... and the watchdog removes its profile folder.
  const char* tmp = std::getenv("TMPDIR");
  const std::string prefix = "quorbex-office-" + std::to_string(child) + "-";
  bool profile_left = true;
  for (int i = 0; i < 60 && profile_left; ++i) {
    profile_left = false;
    for (const auto& entry : std::filesystem::directory_iterator(tmp && *tmp ? tmp : "/tmp")) {
      if (entry.path().filename().string().rfind(prefix, 0) == 0) profile_left = true;
    }
    if (profile_left) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_FALSE(profile_left);
}

// Run by the test above in a process of its own: starts an office, reports its group, and ends at
// once, leaving the office to the watchdog.
TEST(ExcelProcess, DyingClient) {
  const char* fd_text = std::getenv("QUORBEX_EXCEL_CHILD_FD");
  if (!fd_text) GTEST_SKIP() << "run by ExcelProcess.EndsOnHangAndWhenTheClientDies";
  const int fd = std::atoi(fd_text);
  int group = -1;
  try {
    auto app = platform::StartUnoSpreadsheetApplication();
    group = platform::UnoOfficeProcessGroup(*app);
    if (write(fd, &group, sizeof group) != sizeof group) _exit(2);
    _exit(0);  // no clean-up of any kind
  } catch (...) {
  }
  if (write(fd, &group, sizeof group) != sizeof group) _exit(2);
  _exit(1);
}

#else

TEST(ExcelApp, NeedsLibreOffice) { GTEST_SKIP() << "built without the LibreOffice SDK"; }

#endif

}  // namespace
}  // namespace quorbex::test
