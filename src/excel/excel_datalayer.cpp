// DataLayer::Excel, VisualizeToExcel and ImportExcelTable: the DataLayer's records to and from a
// spreadsheet application.
//
// Defined here rather than with the rest of the DataLayer because the spreadsheet tools build on the
// datalayer module: the DataLayer's sources cannot make an ExcelTools without the two depending on
// each other.
#include <algorithm>
#include <exception>
#include <stdexcept>

#include "datalayer/datalayer_internal.h"
#include "platform/spreadsheet/spreadsheet.h"
#include "quorbex/DataLayer.h"
#include "quorbex/ExcelTools.h"
#include "quorbex/text.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

// A record value as a cell holds it: objects have no cell form and stay empty.
Variant CellValue(const Variant& value) { return value.IsObject() ? Variant() : value; }

// A field name that the virtual table's declaration cannot carry (it splits at "," and ";") stands in
// under this name until it is renamed.
std::string StandIn(size_t k) { return "QuorbexExcelField" + std::to_string(k + 1); }

}  // namespace

std::shared_ptr<ExcelTools> DataLayer::Excel() {
  if (!excel_tools_) excel_tools_ = std::make_shared<ExcelTools>();
  return excel_tools_;
}

bool DataLayer::VisualizeToExcel() {
  if (!IsLoaded() || !recordset_) {
    ErrorStatus(kNotLoaded);
    return false;
  }
  auto excel = Excel();
  if (!excel->WBNew()) {
    ErrorStatus("VisualizeToExcel: " + excel->ErrorStatus);
    return false;
  }
  try {
    std::shared_ptr<Workbook> book = excel->WBObject();
    auto first = recordset_->Records(1);
    std::vector<std::string> names;
    const int32_t columns = first ? first->FieldCount() : field_names_.Count();
    for (int32_t j = 1; j <= columns; ++j) {
      names.push_back(first ? (first->FieldAt(j) ? first->FieldAt(j)->Description.str() : std::string())
                            : field_names_.Item(j));
    }
    const int32_t count = RecordCount();
    const int32_t per_sheet = book->MaxRows() - 1;
    std::vector<std::string> sheets = book->SheetNames();
    int32_t done = 0;
    for (int32_t sheet_number = 1; done < count || sheet_number == 1; ++sheet_number) {
      if (sheet_number > static_cast<int32_t>(sheets.size())) {
        std::string name = "Sheet" + std::to_string(sheet_number);
        while (std::find(sheets.begin(), sheets.end(), name) != sheets.end()) name += "_";
        book->AddSheet(name);
        sheets.push_back(name);
      }
      const int32_t rows = std::min(per_sheet, count - done);
      CellBlock block(rows + 1, columns);
      for (int32_t j = 1; j <= columns; ++j) block.Item(1, j) = Variant(names[static_cast<size_t>(j - 1)]);
      for (int32_t i = 1; i <= rows; ++i) {
        auto record = recordset_->Records(done + i);
        const int32_t fields = record ? std::min(record->FieldCount(), columns) : 0;
        for (int32_t j = 1; j <= fields; ++j) {
          if (const clsOfflineField* field = record->FieldAt(j)) block.Item(i + 1, j) = CellValue(field->Value());
        }
      }
      book->WriteCells(sheets[static_cast<size_t>(sheet_number - 1)], 1, 1, block);
      done += rows;
    }
    if (excel->Application()->CanShow()) excel->ShowApp(true);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus(OperationError("VisualizeToExcel", e));
    return false;
  }
}

bool DataLayer::ImportExcelTable(const std::string& strPath, const std::string& strSheetOrName) {
  if (!sql_.empty() || loaded_) {
    ErrorStatus("ImportExcelTable: this DataLayer holds a table already; import into a new DataLayer");
    return false;
  }
  auto excel = Excel();
  CellBlock block;
  std::string table;
  try {
    std::shared_ptr<Workbook> book;
    std::shared_ptr<Workbook> opened;
    if (strPath.empty()) {
      book = excel->WBObject();
      if (!book) throw std::runtime_error("no path given and no workbook open in Excel()");
    } else {
      opened = book = excel->Application()->Open(strPath, std::nullopt, true);
    }
    const std::vector<std::string> sheets = book->SheetNames();
    if (strSheetOrName.empty() || std::find(sheets.begin(), sheets.end(), strSheetOrName) != sheets.end()) {
      table = strSheetOrName.empty() ? sheets.at(0) : strSheetOrName;
      block = book->ReadUsedRange(table);
    } else {
      table = strSheetOrName;
      try {
        block = book->NameCells(strSheetOrName);
      } catch (const std::exception&) {
        if (opened) opened->Close(false);
        throw std::runtime_error("'" + strSheetOrName + "' is neither a sheet nor a defined name of the workbook");
      }
    }
    if (opened) opened->Close(false);
  } catch (const std::exception& e) {
    ErrorStatus(OperationError("ImportExcelTable", e));
    return false;
  }
  if (block.Rows() == 0 || block.Columns() == 0) {
    ErrorStatus("ImportExcelTable: the range '" + table + "' is empty: no row of field names");
    return false;
  }

  try {
    const int32_t columns = block.Columns();
    std::vector<std::string> names;
    bool has_id = false;
    for (int32_t j = 1; j <= columns; ++j) {
      std::string name = Trim(block.Item(1, j).IsEmpty() ? std::string() : CStr(block.Item(1, j)));
      if (name.empty()) name = "Field" + std::to_string(j);
      if (UCase(name) == "ID") has_id = true;
      names.push_back(name);
    }
    const int32_t offset = has_id ? 0 : 1;
    std::string declared = has_id ? "" : "ID";
    std::vector<std::pair<std::string, std::string>> renames;
    for (size_t k = 0; k < names.size(); ++k) {
      std::string name = names[k];
      if (name.find_first_of(",;") != std::string::npos) {
        renames.emplace_back(StandIn(k), name);
        name = StandIn(k);
      }
      if (!declared.empty()) declared += ';';
      declared += name;
    }
    std::string description = table;
    CreateNewVirtualOfflineTable(description, declared);
    for (const auto& [stand_in, name] : renames) RenameVirtualField(stand_in, name);

    // What SetFieldValue by position does (value, the field's and record's marks), with each new record
    // looked up once.
    bool changed = false;
    for (int32_t i = 2; i <= block.Rows(); ++i) {
      AddNew();
      auto record = recordset_->Records(RecordCount());
      for (int32_t j = 1; j <= columns && record; ++j) {
        clsOfflineField* field = record->FieldAt(j + offset);
        if (!field) continue;
        field->Value(block.Item(i, j));
        field->HasChanged = true;
        record->HasChanged = true;
        changed = true;
      }
    }
    if (changed) DataChanged(true);
    if (!has_id) SetAutoGuidColumn("ID", true);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus(OperationError("ImportExcelTable", e));
    return false;
  }
}

}  // namespace quorbex
