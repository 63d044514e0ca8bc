// DataLayer: sorting the records by field names.
//
// Both entry points turn names into positions with FieldID and leave the work to the offline
// recordset. An unknown name gives position 0, which the recordset ignores; FieldID has already
// reported the name then. The cursor keeps its position number, so it names whichever record the sort
// put there.
#include <exception>
#include <string>

#include "quorbex/DataLayer.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

void SettleDirection(bool& ascending, bool& descending) noexcept {
  if (ascending && descending) descending = false;
  if (!ascending && !descending) ascending = true;
}

}  // namespace

// SortRecordset: RecordsetSort by the named field (see clsOfflineRecordset); the caller's direction
// switches are settled. Always Empty.
Variant DataLayer::SortRecordset(const std::string& strFieldname, ByRef<bool> bolAsc, ByRef<bool> bolDesc,
                                 ByRef<bool> bolNumberOnly, ByRef<bool> WithProgressBar) {
  try {
    int32_t column = FieldID(strFieldname);
    if (!recordset_) {
      SettleDirection(*bolAsc, *bolDesc);  // as the recordset would have done
      return {};
    }
    recordset_->RecordsetSort(column, *bolAsc, *bolDesc, *bolNumberOnly, *WithProgressBar);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("SortRecordset", e));
  }
  return {};
}

// SortRecordsetNextInside: RecordsetInnerSort of the second named field inside the runs of the first.
// Always Empty.
Variant DataLayer::SortRecordsetNextInside(const std::string& strFieldnameLastSorted,
                                           const std::string& strFieldnameToSort, ByRef<bool> bolAsc,
                                           ByRef<bool> bolDesc) {
  try {
    int32_t sorted_last = FieldID(strFieldnameLastSorted);
    int32_t to_sort = FieldID(strFieldnameToSort);
    if (!recordset_) {
      SettleDirection(*bolAsc, *bolDesc);
      return {};
    }
    recordset_->RecordsetInnerSort(sorted_last, to_sort, *bolAsc, *bolDesc);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("SortRecordsetNextInside", e));
  }
  return {};
}

}  // namespace quorbex
