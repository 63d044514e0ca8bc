// The sort order itself, for library code that needs the order of the records rather than the sorted
// recordset (removing repeated values keeps only part of them, so it places only those).
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "quorbex/clsOfflineRecordset.h"

namespace quorbex::internal {

// The order RecordsetSort(column, ascending, text order) gives records 1 to RecordCount, as their
// 0-based positions in the collection now; the recordset is not changed. nullopt for a column below 1
// and when a counted record lacks the column (RecordsetSort would then end early with an error).
// Raises AutomationError 7 "Out of memory".
std::optional<std::vector<uint32_t>> AscendingTextOrder(const clsOfflineRecordset& recordset, int32_t column);

}  // namespace quorbex::internal
