// Helpers shared by the analyzer's source files: reading field values the way the interface reads
// them, their text forms and numeric readings without a temporary per value, and the distinct-value
// gathering behind SingleOccurrence and PivotCountOnly.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "quorbex/clsOfflineField.h"
#include "quorbex/clsOfflineRecord.h"
#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex::internal {

// What clsOfflineField::Value() returns, without the copy: the stored value, Null read as "".
const Variant& StoredValue(const clsOfflineField& field) noexcept;

// The field at 1-based `id` of `record`; raises AutomationError 91 when the record or the field is
// missing, the failure a record without that field gives.
clsOfflineField& FieldOf(const clsOfflineRecord* record, int32_t id);

// Appends CStr(value) to `out`: the same text, written without a temporary for texts and numbers.
// Raises what CStr raises (94 for Null).
void AppendValueText(std::string& out, const Variant& value);

// The text of a double exactly as CStr writes it (15 significant digits, the locale's separator).
void AppendDoubleText(std::string& out, double value);

// The arithmetic's reading of a value: its text (CStr), every "," turned into "." when
// `comma_as_point`, then the leading number with "." as the decimal point (Val). `text` receives the
// text that was read. Raises what CStr and Val raise.
double ReadAsNumber(const Variant& value, bool comma_as_point, std::string& text);

// The comparison key of OccurrenceCount without MatchCase: the text, trimmed of blanks, in lower case.
// Written into `out` (cleared first). Raises what CStr raises.
void LowerTrimmedText(const Variant& value, std::string& out);

// Transparent hashing, so that a map keyed by std::string can be searched with a std::string_view.
struct TextHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
};
// Texts to numbers (counts, ids), searchable without making a std::string.
using TextMap = std::unordered_map<std::string, int32_t, TextHash, std::equal_to<>>;

// Distinct values of one field over a record collection, in ascending order, and optionally the
// OccurrenceCount (without MatchCase) of each in the same pass.
struct DistinctValues {
  std::vector<Variant> values;   // ascending, each once
  std::vector<int32_t> counts;   // per value, when counting was asked for
  std::string last_failure;      // description of the last record that failed, "" when none
};
DistinctValues GatherDistinct(const Collection<std::shared_ptr<clsOfflineRecord>>* records, int32_t field_id,
                              bool with_counts);

}  // namespace quorbex::internal
