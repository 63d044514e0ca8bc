// The test both filter passes make on one record.
#pragma once

#include <cstdint>
#include <string>

#include "quorbex/clsOfflineRecord.h"
#include "quorbex/variant.h"
#include "service/modService.h"

namespace quorbex::internal {

// CompareValues(the Value of field `field_id` of `record`, compare_value, op), reading the stored value
// in place (a Null as "", as Value() returns it). Raises AutomationError 91 with `source` when the
// record or the field is not there, and whatever CompareValues raises.
bool FieldMatches(const clsOfflineRecord* record, int32_t field_id, const std::string& op,
                  const Variant& compare_value, const char* source);
// The same with the compare value and the operator prepared once, for a pass over many records.
bool FieldMatches(const clsOfflineRecord* record, int32_t field_id, ValueTest& test, const char* source);

}  // namespace quorbex::internal
