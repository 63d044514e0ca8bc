// DataLayer: virtual tables and fields, built and reshaped in memory without a database.
//
// A virtual table is declared by a list of field names; its records come from AddNew. Fields can be
// added, removed and renamed, filled, trimmed and given GUIDs; records can be copied and repaired when
// their fields have drifted out of the common layout. Only a later Save touches a database.
#include <exception>
#include <unordered_set>
#include <vector>

#include "datalayer/datalayer_internal.h"
#include "quorbex/DataLayer.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {
constexpr const char* kSource = "Quorbex DataLayer";
constexpr int32_t kVirtualTableError = 40000;
}  // namespace

bool DataLayer::CreateNewVirtualOfflineTable(ByRef<std::string> TableDescription,
                                             ByRef<std::string> FieldsDividedBySemicolon) {
  // The two misuses are raised, not reported: a table without fields or on top of another is a bug
  // in the caller, not a condition to check afterwards.
  if (FieldsDividedBySemicolon->empty()) {
    throw AutomationError(kVirtualTableError, kSource, "Cannot create new offline table because no fields stated!");
  }
  if (!sql_.empty()) {
    throw AutomationError(kVirtualTableError, kSource,
                          "Cannot create table if a table already exists. Use new instance of the Quorbex DataLayer");
  }
  if (TableDescription->empty()) *TableDescription = "Dummy";
  *TableDescription = "SELECT * FROM " + *TableDescription;

  // Comma and semicolon both separate; the list ends at the first empty name.
  *FieldsDividedBySemicolon = ReplaceText(*FieldsDividedBySemicolon, ",", ";");
  auto names = SplitToCollection(*FieldsDividedBySemicolon, ";", false, false, true);

  bool has_id = false;
  for (const auto& name : *names) {
    if (UCase(name) == "ID") has_id = true;
  }
  if (!has_id) {
    ErrorStatus("New virtual offline table created without an ID column. ID column is needed and it can cause "
                "errors if missing!");
  }

  sql_ = *TableDescription;
  recordset_ = std::make_shared<clsOfflineRecordset>();
  recordset_->Parent = weak_from_this();
  field_names_ = *names;
  // Declared is loaded: the table is in place with no record yet, and AddNew creates the first one
  // from the field names.
  loaded_ = true;
  empty_result_ = false;
  cursor_ = 0;
  return has_id;
}

void DataLayer::AddVirtualField(const std::string& FieldName) {
  try {
    if (!recordset_) {
      recordset_ = std::make_shared<clsOfflineRecordset>();
      recordset_->Parent = weak_from_this();
    }
    recordset_->FieldDim(1, FieldName);
    // The name list is the layout of records still to come (AddNew on an empty table).
    field_names_.Add(FieldName);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("AddVirtualField", e));
  }
}

void DataLayer::RemoveVirtualField(const std::string& FieldName) {
  const int32_t position = FieldID(FieldName);
  if (position == 0) {
    ErrorStatus("RemoveVirtualField: Fieldname '" + FieldName + "' not found");
    return;
  }
  try {
    // RemoveField takes a field away only when it is the last one: a middle column stays in the records
    // while its name leaves the name list. Clients know the method by that behaviour, so it is kept.
    if (!recordset_) RaiseRuntimeError(errnum::kSubscriptOutOfRange);
    recordset_->RemoveField(position);
    if (position <= field_names_.Count()) field_names_.Remove(position);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("RemoveVirtualField-Error", e));
  }
}

void DataLayer::RenameVirtualField(const std::string& OldName, const std::string& NewName) {
  const int32_t position = FieldID(OldName);
  if (position == 0) {
    ErrorStatus("RenameVirtualField: OldName '" + OldName + "' not found");
    return;
  }
  if (NewName.empty()) {
    ErrorStatus("RenameVirtualField: empty NewName is not allowed");
    return;
  }
  try {
    const InternedName name(NewName);  // one stored name for the whole column
    const int32_t count = RecordCount();
    for (int32_t i = 1; i <= count; ++i) {
      auto record = recordset_->Records(i);
      if (clsOfflineField* field = record ? record->FieldAt(position) : nullptr) field->Description = name;
    }
    if (position <= field_names_.Count()) field_names_.Item(position) = NewName;
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("RenameVirtualField-Error", e));
  }
}

bool DataLayer::SetAutoGuidColumn(const std::string& strFieldname, bool bolUpdateVirtualTableNow) {
  const std::string wanted = LCase(strFieldname);
  bool listed = false;
  for (const auto& name : field_names_) {
    if (LCase(name) == wanted) {
      listed = true;
      break;
    }
  }
  if (!listed) {
    ErrorStatus("Fieldname " + strFieldname + " is not listed as valid fieldname. Please correct your entry.");
    return false;
  }
  State().auto_guid_column = strFieldname;

  if (bolUpdateVirtualTableNow) {
    const int32_t saved = cursor_;
    const int32_t count = RecordCount();
    for (int32_t i = 1; i <= count; ++i) {
      MoveSpecific(i);
      auto field = FieldObject(strFieldname);
      // Empty and the empty text get a GUID; a Null is a value someone chose and stays.
      if (field && !field->varValue.IsNull() && (field->varValue.IsEmpty() ||
                                                 (field->varValue.IsString() && field->varValue.AsString().empty()))) {
        SetFieldValue(strFieldname, Variant(NewGUID()));
      }
    }
    cursor_ = saved;
  }
  return true;
}

std::string DataLayer::NewGUID() { return NewGUIDText(); }

void DataLayer::FillField(const std::string& FieldName, const Variant& varValue, bool bolOverwriteExistingValues) {
  const int32_t position = FieldID(FieldName);
  if (position == 0) {
    ErrorStatus("FillField: Fieldname '" + FieldName + "' not reckkognized");
    return;
  }
  // The test reads the stored value as text, so a Null stops the fill with AutomationError 94 "Invalid
  // use of Null" at that record, the records before it filled. This is the one failure of the method
  // that reaches the caller, and it does so on purpose: a Null in a column being filled is a question
  // the caller has to answer.
  const int32_t count = RecordCount();
  for (int32_t i = 1; i <= count; ++i) {
    auto record = recordset_->Records(i);
    clsOfflineField* field = record ? record->FieldAt(position) : nullptr;
    if (!field) continue;
    if (bolOverwriteExistingValues || CStr(field->varValue).empty()) field->Value(varValue);
  }
}

void DataLayer::TrimField(const std::string& strFieldname) {
  const int32_t position = FieldID(strFieldname);
  if (position == 0) {
    ErrorStatus("TrimField: Fieldname '" + strFieldname + "' not reckognized");
    return;
  }
  try {
    const int32_t count = RecordCount();
    for (int32_t i = 1; i <= count; ++i) {
      MoveSpecific(i);
      // Every record is written back, changed or not, so every record carries the marks afterwards;
      // FieldValue reads a Null as the empty text, and that is what gets written.
      SetFieldValue(strFieldname, Variant(Trim(CStr(FieldValue(strFieldname)))));
    }
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("TrimField", e));
  }
}

Variant DataLayer::CopyCurrentRecord(const std::string& IDFieldName, std::optional<Variant> NewID) {
  try {
    if (IsLoaded() && cursor_ < 1) cursor_ = 1;
    auto source = CurrentRecord();
    if (!IsLoaded() || !source) {
      ErrorStatus(IsLoaded() ? "CopyCurrentRecord: no current record" : kNotLoaded);
      return {};
    }
    AddNew();
    auto copy = CurrentRecord();
    if (!copy || copy == source) return {};
    if (copy->FieldCount() < source->FieldCount()) copy->Add(source->FieldCount() - copy->FieldCount());

    // Every field is cloned with its value and all its marks, the auto-GUID column included: the copy
    // is the record that was current, and only the ID field below sets it apart.
    const int32_t fields = source->FieldCount();
    for (int32_t i = 1; i <= fields; ++i) {
      clsOfflineField* from = source->FieldAt(i);
      clsOfflineField* to = copy->FieldAt(i);
      if (from && to) *to = *from;
    }
    SetFieldValue(IDFieldName, NewID.value_or(Variant()));
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("CopyCurrentRecord", e));
  }
  return {};
}

bool DataLayer::RepairRecords(const Variant& RecordIDtoUse) {
  constexpr const char* kInvalid = "Unable to start RepareRecords method because of invalid record ID";
  int32_t model_position = 0;
  try {
    model_position = IsNumeric(RecordIDtoUse) ? CLng(RecordIDtoUse) : 0;
  } catch (const std::exception&) {
    model_position = 0;
  }
  auto model = (model_position >= 1 && recordset_) ? recordset_->Records(model_position) : nullptr;
  if (!model) {
    ErrorStatus(kInvalid);
    return false;
  }
  try {
    const int32_t model_count = model->FieldCount();
    std::vector<const clsOfflineField*> layout;
    layout.reserve(static_cast<size_t>(model_count));
    for (int32_t j = 1; j <= model_count; ++j) layout.push_back(model->FieldAt(j));

    bool checked_names = false;
    const int32_t count = RecordCount();
    for (int32_t i = 1; i <= count; ++i) {
      auto record = recordset_->Records(i);
      if (!record || record->FieldCount() == model_count) continue;
      if (!checked_names) {
        std::unordered_set<std::string_view> seen;
        for (const clsOfflineField* field : layout) {
          if (!seen.insert(field->Description.view()).second) {
            ErrorStatus("RepareRecords not possible due to the usage of double fieldnames in the same record");
            return false;
          }
        }
        checked_names = true;
      }
      // The model's fields first, in its order (the record's own where it has them, new empty ones
      // where not), then whatever the record has beyond the model, in its order.
      auto& items = record->FieldCollection()->Items();
      std::vector<std::shared_ptr<clsOfflineField>> ordered;
      ordered.reserve(items.size() + layout.size());
      std::vector<bool> used(items.size(), false);
      for (const clsOfflineField* wanted : layout) {
        std::shared_ptr<clsOfflineField> found;
        for (size_t k = 0; k < items.size(); ++k) {
          if (!used[k] && items[k] && items[k]->Description == wanted->Description) {
            used[k] = true;
            found = items[k];
            break;
          }
        }
        if (!found) {
          record->Add(1);  // counts the new field in the record's own field counter
          found = items.back();
          used.push_back(true);
          found->Description = wanted->Description;
          found->lngFieldType = wanted->lngFieldType;
        }
        ordered.push_back(std::move(found));
      }
      for (size_t k = 0; k < items.size(); ++k) {
        if (!used[k]) ordered.push_back(items[k]);
      }
      items = std::move(ordered);
    }
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("RepairRecords", e));
    return false;
  }
  return true;
}

bool DataLayer::CheckContainsFieldName(const std::string& FieldName) {
  const std::string wanted = LCase(FieldName);
  for (const auto& name : field_names_) {
    if (LCase(name) == wanted) return true;
  }
  if (!IsLoaded() || RecordCount() == 0) return false;
  if (cursor_ == 0) cursor_ = 1;
  return FindFieldInCurrentRecord(FieldName) > 0;
}

}  // namespace quorbex
