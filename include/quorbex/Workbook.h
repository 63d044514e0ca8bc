// Workbook: an open spreadsheet workbook of the spreadsheet application, as ExcelTools::WBObject hands
// it out; and CellBlock, a rectangle of cell values.
//
// The workbook object is a thin handle on a document living in the spreadsheet application (a separate
// process): every member is one or a few calls into that application. A member that fails throws
// std::runtime_error with a plain description ("the sheet 'X' does not exist", "the spreadsheet
// application did not answer within 60 s and was stopped"); ExcelTools and the DataLayer catch these
// and report them through their error channels.
//
// Cell values are Variants: numbers come as Double, dates and times as Date, truth values as Boolean,
// texts as String, empty cells as Empty. A Date or Boolean written into a cell is stored as a number
// with a date or truth-value format, so that it reads back as the same kind; Currency and the integer
// kinds are stored, and read back, as Double; Null and Empty leave the cell empty.
//
// Positions (rows, columns) are 1-based, as everywhere in the interface.
//
// Thread safety: none; a workbook belongs to the thread of the ExcelTools that opened it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quorbex/variant.h"

namespace quorbex {

// A rectangle of cell values, row by row. Also the value of a defined name that covers more than one
// cell (clsNames::ValueOfName).
class CellBlock : public Object {
 public:
  CellBlock() = default;
  CellBlock(int32_t rows, int32_t columns)
      : rows_(rows), columns_(columns), cells_(static_cast<size_t>(rows) * static_cast<size_t>(columns)) {}

  int32_t Rows() const { return rows_; }
  int32_t Columns() const { return columns_; }
  // The cell at 1-based row and column; raises AutomationError 9 outside the block.
  Variant& Item(int32_t row, int32_t column);
  const Variant& Item(int32_t row, int32_t column) const;
  // The cells row by row (Rows() * Columns() values).
  const std::vector<Variant>& Cells() const { return cells_; }
  std::vector<Variant>& Cells() { return cells_; }

 private:
  int32_t rows_ = 0;
  int32_t columns_ = 0;
  std::vector<Variant> cells_;
};

class Workbook : public Object {
 public:
  // The file the workbook was opened from or last saved to; "" for a new, unsaved workbook.
  virtual std::string FullName() = 0;
  // The sheet names in order.
  virtual std::vector<std::string> SheetNames() = 0;
  // Appends an empty sheet named `name` after the last one; throws when the name is taken.
  virtual void AddSheet(const std::string& name) = 0;
  // The largest row number a sheet has (the application's limit).
  virtual int32_t MaxRows() = 0;

  // Reads `rows` x `columns` cells from the sheet, starting at row `top`, column `left`.
  virtual CellBlock ReadCells(const std::string& sheet, int32_t top, int32_t left, int32_t rows, int32_t columns) = 0;
  // Writes the block into the sheet with its top left cell at (top, left), in one call into the
  // application (plus one per kind of format that Dates and Booleans need).
  virtual void WriteCells(const std::string& sheet, int32_t top, int32_t left, const CellBlock& cells) = 0;
  // The sheet's used range: from its first used row and column to its last used row and column. An
  // empty sheet gives an empty block.
  virtual CellBlock ReadUsedRange(const std::string& sheet) = 0;

  // The defined names: the workbook's, then those of each sheet as "Sheet!Name".
  virtual std::vector<std::string> Names() = 0;
  // What a name refers to: a range as "Sheet1!$A$1:$B$3" (a single cell as "Sheet1!$A$1", a sheet name
  // that needs it quoted as 'My Sheet'!$A$1); a constant or formula as its expression ("42"). Throws
  // when there is no such name.
  virtual std::string NameReference(const std::string& name) = 0;
  // The value a name refers to: the cell's value for a one-cell range, a CellBlock object for a larger
  // one, the computed value for a constant or formula. Throws when there is no such name or the
  // reference is invalid.
  virtual Variant NameValue(const std::string& name) = 0;
  // The cells a range name covers (a constant gives a 1 x 1 block with its value).
  virtual CellBlock NameCells(const std::string& name) = 0;

  // Adds a new code module holding `code` to the workbook's macro project and returns the module's
  // name (Module1, Module2, ...). The code is classic Basic with the object model of the original
  // spreadsheet application (Range("A1").Value = 1), run in the application's compatibility mode.
  virtual std::string AddModule(const std::string& code) = 0;
  // Runs a macro of the workbook: "Name", "Module.Name" or "Book!Module.Name". Throws when there is no
  // such macro or when it fails.
  virtual void RunMacro(const std::string& macro) = 0;

  // Writes the workbook to its file.
  virtual void Save() = 0;
  // Writes the workbook to `path` in the format its extension names (.ods, .xlsx, .xlsm, .xls),
  // protected by `password` when one is given, and makes that its file.
  virtual void SaveAs(const std::string& path, const std::string& password = "") = 0;
  // Closes the workbook, saving it first when `save` (a new workbook without a file cannot be saved:
  // it is closed and the call throws). Further calls throw.
  virtual void Close(bool save) = 0;
};

}  // namespace quorbex
