// clsAnalyzer::Pivot and PivotCountOnly: summaries of the records by the values of one field, returned
// as a new virtual table.
//
// Pivot sorts the parent's records by the criteria field and then walks them once: a record whose
// criteria text differs from the one before opens a new result record. The sums of a group are kept
// as numbers while the group runs and written into its result record when the group ends, which gives
// the same fields as adding each record's value to the result field one by one, without a lookup by
// name per record and field.
//
// PivotCountOnly gathers the distinct values and the count of each in a single pass (see
// analysis::GatherDistinct), instead of counting the whole table again for every distinct value.
#include <exception>
#include <string>
#include <vector>

#include "analysis/analyzer_internal.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"
#include "quorbex/frmProgress.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "service/thread_state.h"

namespace quorbex {

namespace {

constexpr const char* kPivotFailure = "Analyzer.Pivot: Fehler bei Aufbereitung: ";
constexpr const char* kPivotDescription = "Pivot";
constexpr const char* kProgressText = "Pivotieren....";
constexpr int32_t kMaxValueFields = 100;

// Runs one step of a pivot; a failure is remembered and the pivot goes on with the next step.
class Steps {
 public:
  template <class Fn>
  void Run(Fn&& fn) {
    try {
      fn();
    } catch (const AutomationError& e) {
      last_failure_ = e.Description();
    } catch (const std::exception& e) {
      last_failure_ = e.what();
    }
  }
  void Fail(std::string description) { last_failure_ = std::move(description); }
  const std::string& LastFailure() const { return last_failure_; }

 private:
  std::string last_failure_;
};

// The trimmed, upper-case form in which DataLayer::FieldValue and SetFieldValue match names.
std::string NameKey(std::string_view name) { return UCase(Trim(name)); }

// Finds a field of a record the way FieldValue does (first trimmed, upper-case match), remembering the
// position found in the first record: records share their layout, so the name is compared only when a
// record's field at that position carries another name.
class FieldFinder {
 public:
  explicit FieldFinder(std::string name) : key_(NameKey(name)) {}

  const clsOfflineField* In(const clsOfflineRecord& record) {
    if (position_ > 0) {
      const clsOfflineField* field = record.FieldAt(position_);
      if (field && field->Description == name_) return field;
    }
    const int32_t count = record.FieldCount();
    const clsOfflineField* first = record.FieldAt(1);
    // A layout already searched in vain is not searched again.
    if (missing_ && first && count == missing_count_ && first->Description == missing_first_) return nullptr;
    for (int32_t i = 1; i <= count; ++i) {
      const clsOfflineField* field = record.FieldAt(i);
      if (field && NameKey(field->Description.view()) == key_) {
        position_ = i;
        name_ = field->Description;
        return field;
      }
    }
    if (first) {
      missing_ = true;
      missing_count_ = count;
      missing_first_ = first->Description;
    }
    return nullptr;
  }

 private:
  std::string key_;
  int32_t position_ = 0;
  InternedName name_;
  bool missing_ = false;
  int32_t missing_count_ = 0;
  InternedName missing_first_;
};

// A value read as a number for the sums: numbers as they are, anything else by the leading number of
// its text with "." as the decimal point.
double SumValue(const Variant& value) {
  switch (value.Type()) {
    case VarType::Byte:
    case VarType::Integer:
    case VarType::Long:
    case VarType::Single:
    case VarType::Double:
    case VarType::Currency: return CDbl(value);
    case VarType::Empty: return 0.0;
    case VarType::String: return Val(std::string_view(value.AsString()));
    default: return Val(CStr(value));
  }
}

// Fills the result's ID column with GUIDs. SetAutoGuidColumn also makes "ID" the thread's auto-GUID
// column; the pivot puts the caller's setting back, so that later AddNew calls on other tables are not
// affected by a summary having been built.
void FillIds(DataLayer& result, Steps& steps) {
  std::string& column = State().auto_guid_column;
  const std::string saved = column;
  steps.Run([&] { result.SetAutoGuidColumn("ID", true); });
  column = saved;
}

}  // namespace

std::shared_ptr<DataLayer> clsAnalyzer::Pivot(const std::string& ValueFieldsDividedBySemicolon,
                                              const std::string& CriteriaField, bool WithProgressBar) {
  Steps steps;
  auto result = std::make_shared<DataLayer>();
  auto parent = parent_data_layer_.lock();

  std::vector<std::string> names;
  for (int32_t i = 1; i <= kMaxValueFields; ++i) {
    std::string name = GetToken(ValueFieldsDividedBySemicolon, ";", i);
    if (name.empty()) break;
    names.push_back(std::move(name));
  }

  if (parent) {
    steps.Run([&] {
      bool ascending = true;
      bool descending = false;
      bool number_only = false;
      bool with_progress = WithProgressBar;
      parent->SortRecordset(CriteriaField, ascending, descending, number_only, with_progress);
    });
  } else {
    steps.Fail("Object variable or With block variable not set");
  }

  steps.Run([&] {
    std::string description = kPivotDescription;
    std::string fields = ValueFieldsDividedBySemicolon.find(CriteriaField) != std::string::npos
                             ? "ID;" + ValueFieldsDividedBySemicolon
                             : "ID;" + CriteriaField + ";" + ValueFieldsDividedBySemicolon;
    result->CreateNewVirtualOfflineTable(description, fields);
  });

  // One sum per result field: names that SetFieldValue would take to the same field share it, and the
  // criteria field keeps the group's text rather than a sum of it.
  const std::string criteria_key = NameKey(CriteriaField);
  struct Slot {
    std::string name;
    double sum = 0.0;
    bool has_value = false;
  };
  std::vector<Slot> slots;
  std::vector<int32_t> slot_of(names.size(), -1);
  std::vector<FieldFinder> sources;
  for (size_t j = 0; j < names.size(); ++j) {
    sources.emplace_back(names[j]);
    const std::string key = NameKey(names[j]);
    if (key == criteria_key) continue;
    for (size_t s = 0; s < slots.size(); ++s) {
      if (NameKey(slots[s].name) == key) slot_of[j] = static_cast<int32_t>(s);
    }
    if (slot_of[j] < 0) {
      slot_of[j] = static_cast<int32_t>(slots.size());
      slots.push_back(Slot{names[j]});
    }
  }
  auto flush = [&] {
    for (Slot& slot : slots) {
      if (slot.has_value) result->SetFieldValue(slot.name, Variant(slot.sum));
      slot.sum = 0.0;
      slot.has_value = false;
    }
  };

  const int32_t count = parent ? parent->RecordCount() : 0;
  auto recordset = parent ? parent->GetOfflineRecordset() : nullptr;
  frmProgress progress;
  FieldFinder criteria(CriteriaField);
  std::string previous;
  std::string current;
  bool in_group = false;
  for (int32_t i = 1; i <= count && recordset; ++i) {
    if (WithProgressBar) {
      steps.Run([&] {
        int32_t position = i;
        int32_t total = count;
        progress.SetProgress(position, total, kProgressText);
        progress.Show();
      });
    }
    const std::shared_ptr<clsOfflineRecord> record = recordset->Records(i);
    if (!record) {
      steps.Fail("Subscript out of range");
      continue;
    }
    steps.Run([&] {
      const clsOfflineField* field = criteria.In(*record);
      current.clear();
      if (field) analysis::AppendValueText(current, analysis::StoredValue(*field));
      if (!in_group || current != previous) {
        if (in_group) flush();
        result->AddNew();
        previous = current;
        in_group = true;
        result->SetFieldValue(CriteriaField, Variant(previous));
      }
    });
    if (!in_group) continue;
    for (size_t j = 0; j < names.size(); ++j) {
      if (slot_of[j] < 0) continue;
      steps.Run([&] {
        const clsOfflineField* field = sources[j].In(*record);
        const double value = field ? SumValue(analysis::StoredValue(*field)) : 0.0;
        Slot& slot = slots[static_cast<size_t>(slot_of[j])];
        slot.sum += value;
        slot.has_value = true;
      });
    }
  }
  if (in_group) steps.Run(flush);
  // The walk leaves the parent's cursor on the last record, as moving to each record in turn does.
  if (parent && count > 0) parent->MoveSpecific(count);

  FillIds(*result, steps);
  if (WithProgressBar) progress.Unload();
  if (!steps.LastFailure().empty()) Report(kPivotFailure + steps.LastFailure());
  return result;
}

std::shared_ptr<DataLayer> clsAnalyzer::PivotCountOnly(const std::string& CriteriaField) {
  Steps steps;
  auto result = std::make_shared<DataLayer>();

  const int32_t id = ResolveField(CriteriaField);
  analysis::DistinctValues distinct = analysis::GatherDistinct(records_.get(), id, true);
  if (!distinct.last_failure.empty()) steps.Fail(distinct.last_failure);

  steps.Run([&] {
    std::string description = kPivotDescription;
    std::string fields = "ID;" + CriteriaField + ";Count";
    result->CreateNewVirtualOfflineTable(description, fields);
  });
  for (size_t i = 0; i < distinct.values.size(); ++i) {
    steps.Run([&] {
      result->AddNew();
      result->SetFieldValue(CriteriaField, distinct.values[i]);
      result->SetFieldValue("Count", Variant(distinct.counts[i]));
    });
  }

  FillIds(*result, steps);
  if (!steps.LastFailure().empty()) Report(kPivotFailure + steps.LastFailure());
  return result;
}

}  // namespace quorbex
