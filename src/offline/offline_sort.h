// The sort order itself, for library code that needs the order of the records rather than the sorted
// recordset (removing repeated values keeps only part of them, so it places only those), and the sort
// of a bare record list (an extract's records are not a recordset of their own).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "quorbex/clsOfflineRecordset.h"

namespace quorbex::internal {

// The order RecordsetSort(column, ascending, text order) gives records 1 to RecordCount, as their
// 0-based positions in the collection now; the recordset is not changed. nullopt for a column below 1
// and when a counted record lacks the column (RecordsetSort would then end early with an error).
// Raises AutomationError 7 "Out of memory".
std::optional<std::vector<uint32_t>> AscendingTextOrder(const clsOfflineRecordset& recordset, int32_t column);

// Sorts the first `count` records of `records` in place into the order RecordsetSort gives a recordset
// holding them, by column `column` (below 1: nothing), in text or, with `numbers`, number order, with
// the progress display when `with_progress`. The records beyond `count` stay. False when one of the
// first `count` records lacks the column (or is missing): only the part of the exchange sort's first
// pass in front of it has then been made, as RecordsetSort does, and reporting it is the caller's
// business. Raises AutomationError 7 "Out of memory" with `source`, before anything moved.
bool SortRecordList(std::vector<std::shared_ptr<clsOfflineRecord>>& records, size_t count, int32_t column,
                    bool ascending, bool numbers, bool with_progress, const char* source);

}  // namespace quorbex::internal
