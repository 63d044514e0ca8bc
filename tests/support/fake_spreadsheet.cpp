#include "fake_spreadsheet.h"

#include <algorithm>
#include <stdexcept>

namespace quorbex::test {

void FakeWorkbook::AddSheet(const std::string& name) {
  if (sheets.count(name)) throw std::runtime_error("the sheet '" + name + "' exists already");
  sheets[name];
  order.push_back(name);
}

CellBlock FakeWorkbook::ReadCells(const std::string& sheet, int32_t top, int32_t left, int32_t rows, int32_t columns) {
  auto& cells = sheets.at(sheet);
  CellBlock block(rows, columns);
  for (int32_t r = 1; r <= rows; ++r) {
    for (int32_t c = 1; c <= columns; ++c) {
      if (auto it = cells.find({top + r - 1, left + c - 1}); it != cells.end()) block.Item(r, c) = it->second;
    }
  }
  return block;
}

void FakeWorkbook::WriteCells(const std::string& sheet, int32_t top, int32_t left, const CellBlock& block) {
  if (top + block.Rows() - 1 > state_->max_rows) throw std::runtime_error("beyond the last row");
  ++state_->writes;
  auto& cells = sheets.at(sheet);
  for (int32_t r = 1; r <= block.Rows(); ++r) {
    for (int32_t c = 1; c <= block.Columns(); ++c) cells[{top + r - 1, left + c - 1}] = block.Item(r, c);
  }
}

CellBlock FakeWorkbook::ReadUsedRange(const std::string& sheet) {
  auto& cells = sheets.at(sheet);
  int32_t rows = 0, columns = 0;
  for (auto& [at, value] : cells) {
    if (value.IsEmpty()) continue;
    rows = std::max(rows, at.first);
    columns = std::max(columns, at.second);
  }
  return ReadCells(sheet, 1, 1, rows, columns);
}

std::vector<std::string> FakeWorkbook::Names() {
  std::vector<std::string> list;
  for (auto& [name, reference] : names) list.push_back(name);
  return list;
}

std::string FakeWorkbook::NameReference(const std::string& name) {
  auto it = names.find(name);
  if (it == names.end()) throw std::runtime_error("the name '" + name + "' does not exist in the workbook");
  return it->second;
}

// Only references of the form "Sheet!$A$1:$B$2" with one-letter columns, which is all the tests use.
CellBlock FakeWorkbook::NameCells(const std::string& name) {
  const std::string reference = NameReference(name);
  const auto bang = reference.find('!');
  if (bang == std::string::npos) {
    CellBlock block(1, 1);
    block.Item(1, 1) = Variant(reference);
    return block;
  }
  const std::string sheet = reference.substr(0, bang);
  const int32_t left = reference[bang + 2] - 'A' + 1;
  const int32_t top = std::stoi(reference.substr(bang + 4));
  const auto colon = reference.find(':');
  const int32_t right = reference[colon + 2] - 'A' + 1;
  const int32_t bottom = std::stoi(reference.substr(colon + 4));
  return ReadCells(sheet, top, left, bottom - top + 1, right - left + 1);
}

Variant FakeWorkbook::NameValue(const std::string& name) {
  CellBlock block = NameCells(name);
  return block.Item(1, 1);
}

std::string FakeWorkbook::AddModule(const std::string& code) {
  state_->modules.push_back(code);
  return "Module" + std::to_string(state_->modules.size());
}

void FakeWorkbook::RunMacro(const std::string& macro) {
  auto it = state_->macros.find(macro);
  if (it == state_->macros.end()) throw std::runtime_error("the macro '" + macro + "' does not exist in the workbook");
  it->second(*this);
}

std::shared_ptr<Workbook> FakeSpreadsheetApplication::Open(const std::string& path, const std::optional<std::string>&,
                                                          bool) {
  if (!state_->open_failure.empty()) throw std::runtime_error(state_->open_failure);
  auto it = files.find(path);
  if (it == files.end()) throw std::runtime_error("the file '" + path + "' does not exist");
  return it->second;
}

std::shared_ptr<Workbook> FakeSpreadsheetApplication::New() {
  last_new = std::make_shared<FakeWorkbook>(state_);
  return last_new;
}

std::shared_ptr<platform::SpreadsheetApplication> FakeSpreadsheetStarter::Start() {
  ++state->started;
  last = std::make_shared<FakeSpreadsheetApplication>(state);
  last->files = files;
  return last;
}

}  // namespace quorbex::test
