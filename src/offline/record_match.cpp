#include "offline/record_match.h"

#include "offline/offline_errors.h"
#include "service/modService.h"

namespace quorbex::internal {

bool FieldMatches(const clsOfflineRecord* record, int32_t field_id, const std::string& op,
                  const Variant& compare_value, const char* source) {
  const clsOfflineField* field = record != nullptr ? record->FieldAt(field_id) : nullptr;
  if (field == nullptr) RaiseObjectNotSet(source);
  return CompareValues(field->varValue, compare_value, op);  // reads a Null as "" itself
}

bool FieldMatches(const clsOfflineRecord* record, int32_t field_id, ValueTest& test, const char* source) {
  const clsOfflineField* field = record != nullptr ? record->FieldAt(field_id) : nullptr;
  if (field == nullptr) RaiseObjectNotSet(source);
  return test.Matches(field->varValue);
}

}  // namespace quorbex::internal
