#include "platform/spreadsheet/spreadsheet.h"

#include <cctype>
#include <stdexcept>

#include "quorbex/errors.h"

#ifdef QUORBEX_HAVE_LIBREOFFICE
#include "platform/spreadsheet/uno/uno_spreadsheet.h"
#endif

namespace quorbex {

Variant& CellBlock::Item(int32_t row, int32_t column) {
  if (row < 1 || row > rows_ || column < 1 || column > columns_) RaiseRuntimeError(errnum::kSubscriptOutOfRange);
  return cells_[static_cast<size_t>(row - 1) * static_cast<size_t>(columns_) + static_cast<size_t>(column - 1)];
}

const Variant& CellBlock::Item(int32_t row, int32_t column) const {
  return const_cast<CellBlock*>(this)->Item(row, column);
}

namespace platform {

namespace {

class DefaultStarter : public SpreadsheetStarter {
 public:
  std::shared_ptr<SpreadsheetApplication> Start() override { return StartDefaultSpreadsheetApplication(); }
};

Installed<SpreadsheetStarter>& Slot() {
  static Installed<SpreadsheetStarter> slot(std::make_shared<DefaultStarter>());
  return slot;
}

}  // namespace

bool HaveSpreadsheetApplication() {
#ifdef QUORBEX_HAVE_LIBREOFFICE
  return true;
#else
  return false;
#endif
}

std::shared_ptr<SpreadsheetApplication> StartDefaultSpreadsheetApplication() {
#ifdef QUORBEX_HAVE_LIBREOFFICE
  return StartUnoSpreadsheetApplication();
#else
  throw std::runtime_error(
      "The spreadsheet application could not be started: the library was built without LibreOffice (install "
      "libreoffice-calc-nogui and libreoffice-dev and build again)");
#endif
}

std::shared_ptr<SpreadsheetStarter> Install(std::shared_ptr<SpreadsheetStarter> starter) {
  return Slot().Set(std::move(starter));
}

std::shared_ptr<SpreadsheetApplication> StartSpreadsheetApplication() { return Slot().Get()->Start(); }

std::string ColumnLetters(int32_t column) {
  std::string letters;
  for (int32_t n = column; n > 0; n = (n - 1) / 26) letters.insert(letters.begin(), char('A' + (n - 1) % 26));
  return letters;
}

std::string AbsoluteCell(int32_t row, int32_t column) {
  return "$" + ColumnLetters(column) + "$" + std::to_string(row);
}

std::string QuotedSheetName(const std::string& sheet) {
  bool plain = !sheet.empty() && !std::isdigit(static_cast<unsigned char>(sheet[0]));
  for (unsigned char c : sheet) {
    if (!std::isalnum(c) && c != '_' && c < 0x80) plain = false;
  }
  if (plain) return sheet;
  std::string quoted = "'";
  for (char c : sheet) {
    quoted += c;
    if (c == '\'') quoted += '\'';
  }
  return quoted + "'";
}

}  // namespace platform
}  // namespace quorbex
