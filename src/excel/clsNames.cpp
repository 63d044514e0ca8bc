// clsNames: the defined names of an ExcelTools' workbook.
#include "quorbex/clsNames.h"

#include <exception>

#include "quorbex/ExcelTools.h"
#include "value/failure.h"

namespace quorbex {

using internal::FailureDescription;

std::shared_ptr<Collection<std::string>> clsNames::List() {
  auto list = std::make_shared<Collection<std::string>>();
  auto parent = Parent();
  if (!parent) return list;
  auto book = parent->WBObject();
  if (!book) return list;
  try {
    for (auto& name : book->Names()) list->Add(name);
    if (list->Count() == 0) parent->ErrorStatus = "Es wurden keine Namen gefunden in diesem Workbook!";
  } catch (const std::exception& e) {
    parent->ErrorStatus = "List: " + FailureDescription(e);
  }
  return list;
}

std::string clsNames::SourceRange(const std::string& strName) {
  auto parent = Parent();
  if (!parent) return {};
  auto book = parent->WBObject();
  if (!book) return {};
  try {
    return book->NameReference(strName);
  } catch (const std::exception& e) {
    parent->ErrorStatus = "SourceRange: " + FailureDescription(e);
    return {};
  }
}

Variant clsNames::ValueOfName(const std::string& strName) {
  auto parent = Parent();
  if (!parent) return {};
  auto book = parent->WBObject();
  if (!book) return {};
  try {
    return book->NameValue(strName);
  } catch (const std::exception&) {
    parent->ErrorStatus = "Name " + strName + " hat einen Fehler verursacht. Bitte prüfen Sie den Bezug!";
    return {};
  }
}

int32_t clsNames::Count() {
  auto parent = Parent();
  if (!parent) return 0;
  auto book = parent->WBObject();
  if (!book) return 0;
  try {
    return static_cast<int32_t>(book->Names().size());
  } catch (const std::exception& e) {
    parent->ErrorStatus = "Count: " + FailureDescription(e);
    return 0;
  }
}

}  // namespace quorbex
