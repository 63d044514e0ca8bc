// clsExtract: the record list, its cursor, field access, search, removal, sorting and the column
// calculations. Lists, the text dump and Zoom are in extract_output.cpp.
#include "quorbex/clsExtract.h"

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "offline/offline_sort.h"
#include "platform/message_box.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"
#include "quorbex/clsExtractManager.h"
#include "quorbex/errors.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "service/thread_state.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr const char* kRemoveTitle = "Message for you...";
constexpr const char* kRemoveText =
    "You cannot remove records in the DB from the extract. Get the ID of the record and remove it in the "
    "DataLayer. Then create a new extract.\r\n\r\n"
    "Records will only be removed in the extract and not in the datalayer.";
constexpr const char* kShortRecordText = "Sortrecordset: FieldColumn Index is higher than fieldcount!";

// Finds a field by name the way FieldValue does: the first field of the record whose name, trimmed of
// spaces and upper-cased, equals the wanted name trimmed and upper-cased.
//
// The records of one table share their column names (one stored text per name), so the verdict on each
// stored name is kept: after the first record, finding a field costs a few handle comparisons instead
// of building upper-cased copies of the names again for every record.
class NameMatcher {
 public:
  explicit NameMatcher(const std::string& name) : key_(UCase(Trim(name))) {}

  // The 1-based position of the matching field; 0 when the record has none.
  int32_t Find(const clsOfflineRecord& record) {
    const int32_t count = record.FieldCount();
    for (int32_t i = 1; i <= count; ++i) {
      const clsOfflineField* field = record.FieldAt(i);
      if (field != nullptr && Matches(field->Description)) return i;
    }
    return 0;
  }

 private:
  // More names than this are judged afresh each time (a table that wide is rare, and the list is
  // searched linearly).
  static constexpr size_t kRemembered = 64;

  bool Matches(const InternedName& name) {
    for (const auto& [known, verdict] : verdicts_) {
      if (known == name) return verdict;
    }
    const bool verdict = UCase(Trim(name.view())) == key_;
    if (verdicts_.size() < kRemembered) verdicts_.emplace_back(name, verdict);
    return verdict;
  }

  std::string key_;
  std::vector<std::pair<InternedName, bool>> verdicts_;
};

// The value a field reads as, without copying it: Null reads as the empty text, as Value() gives it.
const Variant& ReadValue(const clsOfflineField& field) {
  static const Variant kEmptyText{std::string()};
  return field.varValue.IsNull() ? kEmptyText : field.varValue;
}

enum class Subduct { Equal, Greater, Less, Differ, Nothing };

Subduct SubductTest(const std::string& op) {
  if (op == "=") return Subduct::Equal;
  if (op == ">") return Subduct::Greater;
  if (op == "<") return Subduct::Less;
  if (op == "<>") return Subduct::Differ;
  return Subduct::Nothing;
}

// The classic `value op compare` as a test: Null on either side is never True.
bool Holds(Subduct test, const Variant& value, const Variant& compare) {
  const auto order = Compare(value, compare);
  if (!order) return false;
  switch (test) {
    case Subduct::Equal: return *order == std::strong_ordering::equal;
    case Subduct::Greater: return *order == std::strong_ordering::greater;
    case Subduct::Less: return *order == std::strong_ordering::less;
    case Subduct::Differ: return *order != std::strong_ordering::equal;
    case Subduct::Nothing: break;
  }
  return false;
}

// The number a value adds to a sum, or nothing when it is not numeric. Plain numbers skip the text
// test; what IsNumeric accepts but CDbl refuses is skipped like any other non-number.
std::optional<double> Summand(const Variant& value) {
  switch (value.Type()) {
    case VarType::Double: return value.AsDouble();
    case VarType::Long: return value.AsLong();
    case VarType::Integer: return value.AsInteger();
    default: break;
  }
  if (!IsNumeric(value)) return std::nullopt;
  try {
    return CDbl(value);
  } catch (const AutomationError&) {
    return std::nullopt;
  }
}

}  // namespace

clsExtract::clsExtract(Key) {}

clsExtract::~clsExtract() = default;

std::shared_ptr<DataLayer> clsExtract::ParentLayer() const {
  auto manager = parent_.lock();
  auto layer = manager ? manager->ParentDL() : nullptr;
  if (!layer) RaiseRuntimeError(errnum::kObjectNotSet);
  return layer;
}

clsOfflineRecord& clsExtract::RecordAt(int32_t position) const {
  if (!records_) RaiseRuntimeError(errnum::kObjectNotSet);
  const std::shared_ptr<clsOfflineRecord>& record = records_->Item(position);  // 9 outside the list
  if (!record) RaiseRuntimeError(errnum::kObjectNotSet);
  return *record;
}

void clsExtract::Report(const std::string& text) const {
  auto manager = parent_.lock();
  if (auto layer = manager ? manager->ParentDL() : nullptr) {
    layer->ErrorStatus(text);
  } else {
    AppendErrorStatus(text);
  }
}

// ---- Records and cursor ---------------------------------------------------------------------------

void clsExtract::SetExtract(std::shared_ptr<RecordCollectionType> value) {
  records_ = std::move(value);
  cursor_ = 1;
}

int32_t clsExtract::RecordCount() const noexcept { return records_ ? records_->Count() : 0; }

Variant clsExtract::MoveFirst() {
  cursor_ = 1;
  return {};
}

Variant clsExtract::MoveLast() {
  cursor_ = RecordCount();
  return {};
}

Variant clsExtract::MoveNext() {
  if (cursor_ != RecordCount()) ++cursor_;
  return {};
}

Variant clsExtract::MovePrevious() {
  if (cursor_ != 1) --cursor_;
  return {};
}

Variant clsExtract::MoveSpecific(int32_t Position) {
  cursor_ = (Position != 0 && Position <= RecordCount()) ? Position : 1;
  return {};
}

void clsExtract::RemoveRecord(bool ShowMessage) {
  if (ShowMessage) MessageRoutine(kRemoveText, platform::vbInformation, kRemoveTitle);
  if (!records_) RaiseRuntimeError(errnum::kObjectNotSet);
  records_->Remove(cursor_);  // 9 when the cursor stands on no record
}

Variant clsExtract::SubductRecords(const std::string& strFieldname, const std::string& strOperator,
                                   const Variant& varValue) {
  cursor_ = 1;
  const Subduct test = SubductTest(strOperator);
  if (test == Subduct::Nothing || !records_) return {};

  // Removing one record never changes whether another matches, so taking out the first match and
  // scanning again from the top until a scan finds none leaves exactly the records that do not match.
  // One pass decides every record and moves the ones that stay to the front.
  std::vector<std::shared_ptr<clsOfflineRecord>>& items = records_->Items();
  NameMatcher matcher(strFieldname);
  size_t kept = 0;
  std::exception_ptr failure;
  for (size_t i = 0; i < items.size(); ++i) {
    bool match = false;
    try {
      if (!items[i]) RaiseRuntimeError(errnum::kObjectNotSet);
      const clsOfflineRecord& record = *items[i];
      const int32_t position = matcher.Find(record);
      static const Variant kMissing;  // FieldValue of a name the record lacks
      match = Holds(test, position > 0 ? ReadValue(*record.FieldAt(position)) : kMissing, varValue);
    } catch (...) {
      // The scan stops here, the earlier matches removed, this record and the rest kept.
      failure = std::current_exception();
      cursor_ = static_cast<int32_t>(kept + 1);
      for (size_t j = i; j < items.size(); ++j, ++kept) {
        if (kept != j) items[kept] = std::move(items[j]);
      }
      break;
    }
    if (!match) {
      if (kept != i) items[kept] = std::move(items[i]);
      ++kept;
    }
  }
  items.resize(kept);
  if (failure) std::rethrow_exception(failure);
  return {};
}

Variant clsExtract::SortRecordset(const std::string& FieldName, ByRef<bool> bolAsc, ByRef<bool> bolDesc,
                                  ByRef<bool> bolNumberOnly, ByRef<bool> WithProgressBar) {
  if (*bolAsc && *bolDesc) *bolDesc = false;
  if (!*bolAsc && !*bolDesc) *bolAsc = true;
  const int32_t column = ParentLayer()->FieldID(FieldName);
  if (column == 0 || !records_) return {};
  // The same order the DataLayer's sort gives (that of a repeated exchange of neighbours), computed in
  // O(n log n) on the list itself.
  std::vector<std::shared_ptr<clsOfflineRecord>>& items = records_->Items();
  if (!SortRecordList(items, items.size(), column, *bolAsc, *bolNumberOnly, *WithProgressBar,
                      "clsExtract.SortRecordset")) {
    AppendErrorStatus(kShortRecordText);
  }
  return {};
}

// ---- Fields of the current record -------------------------------------------------------------------

Variant clsExtract::FieldValue(const std::string& strFieldname) {
  const clsOfflineRecord& record = RecordAt(cursor_);
  const int32_t position = NameMatcher(strFieldname).Find(record);
  return position > 0 ? record.FieldAt(position)->Value() : Variant();
}

Variant clsExtract::SetFieldValue(const std::string& strFieldname, const Variant& varValue) {
  clsOfflineRecord& record = RecordAt(cursor_);
  auto layer = ParentLayer();
  clsOfflineField* field = nullptr;
  const int32_t count = record.FieldCount();
  for (int32_t i = 1; i <= count && field == nullptr; ++i) {
    clsOfflineField* candidate = record.FieldAt(i);
    if (candidate != nullptr && candidate->Description == std::string_view(strFieldname)) field = candidate;
  }
  if (field == nullptr) {
    layer->ErrorStatus("Could not save any value because the name " + strFieldname + " was not rekognized");
    return {};
  }
  field->Value(varValue);
  record.HasChanged = true;
  field->HasChanged = true;
  layer->DataChanged(true);
  if (!record.NewlyAdded && State().realtime_save) layer->Save();
  return {};
}

bool clsExtract::FindRecord(const std::string& strFieldname, const Variant& varCompareValue) {
  cursor_ = 1;
  NameMatcher matcher(strFieldname);
  const int32_t count = RecordCount();
  for (int32_t i = 1; i <= count; ++i) {
    cursor_ = i;
    const clsOfflineRecord& record = RecordAt(i);
    const int32_t position = matcher.Find(record);
    if (position > 0 && Equals(ReadValue(*record.FieldAt(position)), varCompareValue)) return true;
  }
  cursor_ = 1;
  return false;
}

// ---- Whole columns --------------------------------------------------------------------------------

void clsExtract::FillField(const std::string& FieldName, const Variant& varValue, bool bolOverwriteExistingValues) {
  auto layer = ParentLayer();
  const int32_t position = layer->FieldID(FieldName);
  if (position == 0) {
    layer->ErrorStatus("FillField: Fieldname '" + FieldName + "' not reckkognized");
    return;
  }
  // No change marks: a fill is a preparation of the data, as the DataLayer's FillField is. The text test
  // reads a Null as no text at all, which raises 94 there, the records before it filled.
  const int32_t count = RecordCount();
  for (int32_t i = 1; i <= count; ++i) {
    clsOfflineField* field = RecordAt(i).FieldAt(position);
    if (field == nullptr) continue;
    if (bolOverwriteExistingValues || CStr(field->varValue).empty()) field->Value(varValue);
  }
}

double clsExtract::CalcSum(const std::string& strFieldname) {
  const int32_t position = ParentLayer()->FieldID(strFieldname);
  if (position == 0 || !records_) return 0.0;
  double sum = 0.0;
  for (const auto& record : records_->Items()) {
    const clsOfflineField* field = record ? record->FieldAt(position) : nullptr;
    if (field == nullptr) continue;
    if (const auto summand = Summand(ReadValue(*field))) sum += *summand;
  }
  return sum;
}

double clsExtract::CalcAverage(const std::string& strFieldname) {
  const int32_t count = RecordCount();
  if (count == 0) return 0.0;
  // The divisor counts every record, also those whose value was skipped as not numeric.
  return CalcSum(strFieldname) / static_cast<double>(count);
}

std::shared_ptr<clsAnalyzer> clsExtract::Analyzer() {
  // A fresh analyzer every time, none kept: each is bound to the list as it is now, and a caller that
  // holds on to one decides how long it lives.
  auto layer = ParentLayer();
  auto analyzer = std::make_shared<clsAnalyzer>();
  analyzer->ParentDataLayer(layer);
  analyzer->Parent(shared_from_this());
  analyzer->RecordCollection(records_);
  return analyzer;
}

}  // namespace quorbex
