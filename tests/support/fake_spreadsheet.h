// An in-memory spreadsheet application for unit tests of the logic above the platform layer: sheets of
// cells, names (ranges as "Sheet!$A$1:$B$2" or constants), modules, and macros the test defines as
// functions. Install it with platform::SpreadsheetStarterScope and FakeSpreadsheetStarter.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/spreadsheet/spreadsheet.h"

namespace quorbex::test {

struct FakeSpreadsheetState {
  int32_t max_rows = 1048576;
  int started = 0;
  int quit = 0;
  std::string open_failure;  // when set, Open throws it
  std::map<std::string, std::function<void(Workbook&)>> macros;
  std::vector<std::string> modules;  // every module added, in order
  int writes = 0;                    // WriteCells calls
};

class FakeWorkbook : public Workbook {
 public:
  explicit FakeWorkbook(std::shared_ptr<FakeSpreadsheetState> state) : state_(std::move(state)) {}
  std::map<std::string, std::map<std::pair<int32_t, int32_t>, Variant>> sheets{{"Sheet1", {}}};
  std::vector<std::string> order{"Sheet1"};
  std::map<std::string, std::string> names;  // name -> "Sheet!$A$1:$B$2" or a constant's text
  bool closed = false;
  bool saved = false;

  std::string FullName() override { return ""; }
  std::vector<std::string> SheetNames() override { return order; }
  void AddSheet(const std::string& name) override;
  int32_t MaxRows() override { return state_->max_rows; }
  CellBlock ReadCells(const std::string& sheet, int32_t top, int32_t left, int32_t rows, int32_t columns) override;
  void WriteCells(const std::string& sheet, int32_t top, int32_t left, const CellBlock& cells) override;
  CellBlock ReadUsedRange(const std::string& sheet) override;
  std::vector<std::string> Names() override;
  std::string NameReference(const std::string& name) override;
  Variant NameValue(const std::string& name) override;
  CellBlock NameCells(const std::string& name) override;
  std::string AddModule(const std::string& code) override;
  void RunMacro(const std::string& macro) override;
  void Save() override { saved = true; }
  void SaveAs(const std::string&, const std::string&) override { saved = true; }
  void Close(bool save) override {
    saved = saved || save;
    closed = true;
  }

 private:
  std::shared_ptr<FakeSpreadsheetState> state_;
};

class FakeSpreadsheetApplication : public platform::SpreadsheetApplication {
 public:
  explicit FakeSpreadsheetApplication(std::shared_ptr<FakeSpreadsheetState> state) : state_(std::move(state)) {}
  std::shared_ptr<Workbook> Open(const std::string& path, const std::optional<std::string>&, bool) override;
  std::shared_ptr<Workbook> New() override;
  bool Visible() override { return false; }
  void Visible(bool) override { throw std::runtime_error("the fake cannot be shown"); }
  bool CanShow() override { return false; }
  void Quit() override {
    running_ = false;
    ++state_->quit;
  }
  bool Running() override { return running_; }
  // Workbooks "on disk", by path, that Open hands out.
  std::map<std::string, std::shared_ptr<FakeWorkbook>> files;
  std::shared_ptr<FakeWorkbook> last_new;

 private:
  std::shared_ptr<FakeSpreadsheetState> state_;
  bool running_ = true;
};

class FakeSpreadsheetStarter : public platform::SpreadsheetStarter {
 public:
  std::shared_ptr<FakeSpreadsheetState> state = std::make_shared<FakeSpreadsheetState>();
  std::shared_ptr<FakeSpreadsheetApplication> last;
  std::map<std::string, std::shared_ptr<FakeWorkbook>> files;
  std::shared_ptr<platform::SpreadsheetApplication> Start() override;
};

}  // namespace quorbex::test
