// clsNames: the defined names of the workbook open in an ExcelTools (ExcelTools::Names()).
//
// Names are the workbook's own, followed by each sheet's own as "Sheet!Name". Every member reads the
// workbook afresh; failures go to the Parent's ErrorStatus (there is no workbook: "Workbook not
// loaded. Please open Workbook before requesting Object!").
//
// Parent is a back reference that never keeps the ExcelTools alive.
//
// Thread safety: none; it belongs to the thread of its ExcelTools.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

class ExcelTools;

class clsNames : public Object {
 public:
  std::shared_ptr<ExcelTools> Parent() const { return parent_.lock(); }
  void Parent(const std::shared_ptr<ExcelTools>& value) { parent_ = value; }

  // A new collection of the names, in order. Empty, with "Es wurden keine Namen gefunden in diesem
  // Workbook!", when the workbook has none.
  std::shared_ptr<Collection<std::string>> List();
  // What the name refers to, in the form clients of the original application expect: a range as
  // "Sheet1!$A$1:$B$3" (not the "$Sheet1.$A$1:$B$3" of the application underneath), a single cell as
  // "Sheet1!$A$1", a sheet name that needs it in quotes ('My Sheet'!$A$1), a constant as its
  // expression ("42"). "" with "SourceRange: " + the reason when there is no such name.
  std::string SourceRange(const std::string& strName);
  // The value the name refers to: a one-cell range's value, for a larger range a CellBlock object
  // (quorbex/Workbook.h), a constant's value. Empty, with "Name <name> hat einen Fehler verursacht.
  // Bitte prüfen Sie den Bezug!", when the name does not exist or its reference is invalid.
  Variant ValueOfName(const std::string& strName);
  // The number of names (0 without a workbook).
  int32_t Count();

 private:
  std::weak_ptr<ExcelTools> parent_;
};

}  // namespace quorbex
