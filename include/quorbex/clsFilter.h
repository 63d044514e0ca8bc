// clsFilter: one filter applied through DataLayer::Filter, as the thread's filter list remembers it.
//
// A plain record without behaviour. DataLayer::Filter appends one to the thread's filter list (shared
// by every DataLayer of the thread, replaced when a DataLayer is created and dropped when one ends),
// and a refresh of filtered records applies the list again in its order.
//
// Thread safety: a filter belongs to the thread that uses it, like every library object.
#pragma once

#include <string>

#include "quorbex/variant.h"

namespace quorbex {

class clsFilter : public Object {
 public:
  // The field name as it was passed to Filter.
  std::string strFieldname;
  // The operator exactly as it was passed, before Filter mirrors it for the removal.
  std::string strOperator;
  // The value the field was compared with.
  Variant varCompareValue;
  // True when the filter narrowed an active filter instead of starting from all records.
  bool bolAdditionalFilter = false;
};

}  // namespace quorbex
