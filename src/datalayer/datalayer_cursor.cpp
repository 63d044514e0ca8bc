// DataLayer: the cursor and field access on the current record.
//
// The cursor is a 1-based record position, clamped to the first and last record; there is no end mark,
// so clients loop from 1 to RecordCount().
#include "datalayer/datalayer_internal.h"
#include "quorbex/DataLayer.h"
#include "quorbex/text.h"
#include "service/thread_state.h"

namespace quorbex {

using namespace internal;

std::string internal::FieldKey(const std::string& name) { return UCase(Trim(name)); }

namespace {

// Whether a field's name matches a lookup key (FieldKey of the name asked for): trimmed and upper-cased
// it must equal the key. Plain ASCII names, nearly all of them, are compared in place without building
// the upper-cased copy.
bool MatchesKey(std::string_view name, const std::string& key) {
  size_t begin = 0, end = name.size();
  while (begin < end && name[begin] == ' ') ++begin;
  while (end > begin && name[end - 1] == ' ') --end;
  name = name.substr(begin, end - begin);
  bool ascii = true;
  for (char c : name) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
  if (!ascii) return UCase(name) == key;
  if (name.size() != key.size()) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    char c = name[i];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (c != key[i]) return false;
  }
  return true;
}

}  // namespace

int32_t DataLayer::RecordCount() const { return recordset_ ? recordset_->RecordCount() : 0; }

Variant DataLayer::MoveFirst() {
  if (!IsLoaded()) {
    ErrorStatus(kNotLoaded);
    return {};
  }
  cursor_ = 1;
  return {};
}

Variant DataLayer::MoveLast() {
  if (!IsLoaded()) {
    ErrorStatus(kNotLoaded);
    return {};
  }
  cursor_ = RecordCount();
  return {};
}

Variant DataLayer::MoveNext() {
  if (!IsLoaded()) {
    ErrorStatus(kNotLoaded);
    return {};
  }
  if (cursor_ < RecordCount()) ++cursor_;
  else cursor_ = RecordCount();
  return {};
}

Variant DataLayer::MovePrevious() {
  if (!IsLoaded()) {
    ErrorStatus(kNotLoaded);
    return {};
  }
  cursor_ = cursor_ > 1 ? cursor_ - 1 : 1;
  return {};
}

Variant DataLayer::MoveSpecific(int32_t lngRecordPos) {
  int32_t position = lngRecordPos < 1 ? 1 : lngRecordPos;
  int32_t count = RecordCount();
  if (position > count) position = count;
  cursor_ = position;
  return {};
}

std::shared_ptr<clsOfflineRecord> DataLayer::CurrentRecord() const {
  if (!recordset_) return nullptr;
  return recordset_->Records(cursor_);
}

int32_t DataLayer::FindFieldInCurrentRecord(const std::string& name) const {
  auto record = CurrentRecord();
  if (!record) return 0;
  const std::string key = FieldKey(name);
  const int32_t count = record->FieldCount();
  for (int32_t i = 1; i <= count; ++i) {
    auto field = record->Fields(i);
    if (field && MatchesKey(field->Description.view(), key)) return i;
  }
  return 0;
}

int32_t DataLayer::FieldID(const std::string& FieldName) {
  // The loaded query's own field names come first, compared in lower case and untrimmed.
  const std::string lower = LCase(FieldName);
  int32_t position = 0;
  for (const auto& name : field_names_) {
    ++position;
    if (LCase(name) == lower) return position;
  }
  if (!IsLoaded()) {
    ErrorStatus(kNotLoaded);
    return 0;
  }
  if (RecordCount() == 0) {
    ErrorStatus("No Records set!");
    return 0;
  }
  if (cursor_ == 0) cursor_ = 1;
  if (int32_t found = FindFieldInCurrentRecord(FieldName)) return found;
  ErrorStatus("FieldID: Fieldname '" + FieldName + "' not found (or error: )");
  return 0;
}

std::shared_ptr<clsOfflineField> DataLayer::FieldObject(const std::string& FieldName, int32_t Index) {
  if (cursor_ < 1) cursor_ = 1;
  if (!IsLoaded()) {
    ErrorStatus(kNotLoaded);
    return nullptr;
  }
  auto record = CurrentRecord();
  if (!record) return nullptr;
  const int32_t position = (FieldName.empty() && Index > 0) ? Index : FindFieldInCurrentRecord(FieldName);
  return position > 0 ? record->Fields(position) : nullptr;
}

Variant DataLayer::FieldValue(const std::string& FieldName, int32_t Index) {
  auto field = FieldObject(FieldName, Index);
  return field ? field->Value() : Variant();
}

Variant DataLayer::SetFieldValue(const std::string& FieldName, const Variant& varValue, int32_t Index) {
  if (!IsLoaded()) {
    ErrorStatus(kNotLoaded);
    return {};
  }
  auto record = CurrentRecord();
  const bool by_position = FieldName.empty() && Index > 0;
  const int32_t position = by_position ? Index : FindFieldInCurrentRecord(FieldName);
  auto field = (record && position > 0) ? record->Fields(position) : nullptr;
  if (!field) {
    ErrorStatus("Could not save any value because the name " + FieldName + " was not rekognized");
    return {};
  }
  field->Value(varValue);
  field->HasChanged = true;
  record->HasChanged = true;
  data_changed_ = true;
  if (!by_position && State().realtime_save && !record->NewlyAdded) Save();
  return {};
}

Variant DataLayer::FieldValueConvertedYesNo(const std::string& FieldName) {
  Variant value = FieldValue(FieldName);
  try {
    if (Equals(value, Variant(false))) return Variant("Nein");
    if (Equals(value, Variant(true))) return Variant("Ja");
  } catch (const AutomationError&) {
    // A text that is neither number nor Boolean is simply not Yes/No.
  }
  return value;
}

}  // namespace quorbex
