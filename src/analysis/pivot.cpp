// clsAnalyzer::Pivot and PivotCountOnly: summaries of the records by the values of one field, returned
// as a new virtual table.
//
// Pivot sorts the parent's records by the criteria field; in that order, a record whose criteria text
// differs from the one before opens a new result record, and each value field of the result record
// is the sum of the group's values. The work is split so that no step walks records that a sort has
// scattered over the heap: the criteria order and texts first, in one pass over the records in the
// order they stand in memory (see OrderByCriteria), which usually yields the groups' sums as well;
// where it cannot, the groups from the texts alone and the sums in a second such pass; last the
// records move into their order and the result records are written, each once with its final sums.
// That gives the same fields as adding each record's value to the result field one by one, without a
// lookup by name per record and field. The memory used besides the result is a few integers per
// record.
//
// PivotCountOnly gathers the distinct values and the count of each in a single pass (see
// internal::GatherDistinct), instead of counting the whole table again for every distinct value.
#include <algorithm>
#include <deque>
#include <exception>
#include <limits>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "analysis/analyzer_internal.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"
#include "quorbex/frmProgress.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

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
    } catch (const std::exception& e) {
      last_failure_ = internal::FailureDescription(e);
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
    case VarType::Double: return value.AsDouble();
    case VarType::Long: return value.AsLong();
    case VarType::Byte:
    case VarType::Integer:
    case VarType::Single:
    case VarType::Currency: return CDbl(value);
    case VarType::Empty: return 0.0;
    case VarType::String: return Val(std::string_view(value.AsString()));
    default: return Val(CStr(value));
  }
}

// Fills the result's ID column with GUIDs. SetAutoGuidColumn makes "ID" the thread's auto-GUID column,
// and it stays so after the pivot, as for any other caller of SetAutoGuidColumn.
void FillIds(DataLayer& result, Steps& steps) {
  steps.Run([&] { result.SetAutoGuidColumn("ID", true); });
}


// The value fields of a pivot and their sums per group. Names that SetFieldValue would take to the
// same result field share one sum (a slot); the criteria field has none, it keeps the group's text.
class GroupSums {
 public:
  GroupSums(const std::vector<std::string>& names, const std::string& criteria_field) {
    const std::string criteria_key = NameKey(criteria_field);
    slot_of_.assign(names.size(), -1);
    for (size_t j = 0; j < names.size(); ++j) {
      sources_.emplace_back(names[j]);
      const std::string key = NameKey(names[j]);
      if (key == criteria_key) continue;
      for (size_t k = 0; k < slot_names_.size() && slot_of_[j] < 0; ++k) {
        if (NameKey(slot_names_[k]) == key) slot_of_[j] = static_cast<int32_t>(k);
      }
      if (slot_of_[j] < 0) {
        slot_of_[j] = static_cast<int32_t>(slot_names_.size());
        slot_names_.push_back(names[j]);
      }
    }
  }

  size_t Slots() const noexcept { return slot_names_.size(); }
  const std::string& SlotName(size_t k) const { return slot_names_[k]; }
  bool Summed(size_t group, size_t k) const { return summed_[group * Slots() + k] != 0; }
  double Sum(size_t group, size_t k) const { return sums_[group * Slots() + k]; }

  // Adds the record's value fields, read as numbers, to the sums of `group`. A value that cannot be
  // read is left out and its failure remembered under `position`.
  void Add(const clsOfflineRecord& record, size_t group, size_t position) {
    if (Slots() == 0) return;
    if ((group + 1) * Slots() > sums_.size()) {
      sums_.resize((group + 1) * Slots(), 0.0);
      summed_.resize((group + 1) * Slots(), 0);
    }
    for (size_t j = 0; j < slot_of_.size(); ++j) {
      if (slot_of_[j] < 0) continue;
      try {
        const clsOfflineField* field = sources_[j].In(record);
        const double value = field ? SumValue(internal::StoredValue(*field)) : 0.0;
        const size_t at = group * Slots() + static_cast<size_t>(slot_of_[j]);
        sums_[at] += value;
        summed_[at] = 1;
      } catch (const std::exception& e) {
        failures_.emplace_back(position, internal::FailureDescription(e));
      }
    }
  }

  // Puts the groups into a new order: group g becomes the group that was `from[g]`.
  void Reorder(const std::vector<uint32_t>& from) {
    std::vector<double> sums(from.size() * Slots(), 0.0);
    std::vector<uint8_t> summed(from.size() * Slots(), 0);
    for (size_t g = 0; g < from.size(); ++g) {
      for (size_t k = 0; k < Slots(); ++k) {
        const size_t old = from[g] * Slots() + k;
        if (old >= sums_.size()) continue;
        sums[g * Slots() + k] = sums_[old];
        summed[g * Slots() + k] = summed_[old];
      }
    }
    sums_ = std::move(sums);
    summed_ = std::move(summed);
  }
  void Clear() {
    sums_.clear();
    summed_.clear();
    failures_.clear();
  }
  // The failures, each under the position it was remembered with.
  std::vector<std::pair<size_t, std::string>>& Failures() { return failures_; }

 private:
  std::vector<std::string> slot_names_;
  std::vector<int32_t> slot_of_;  // per value name; -1 for the criteria field
  std::vector<FieldFinder> sources_;
  std::vector<double> sums_;      // group-major, one per slot
  std::vector<uint8_t> summed_;   // whether anything was added: a sum of nothing stays Empty
  std::vector<std::pair<size_t, std::string>> failures_;
};

// The criteria texts of the records in criteria order, each as an id into a table of the distinct
// texts, and where each record goes in that order.
struct CriteriaOrder {
  static constexpr uint32_t kNoText = std::numeric_limits<uint32_t>::max();

  // The id of a text in the table, added when new.
  uint32_t TextId(std::string_view text) {
    auto it = index.find(text);
    if (it != index.end()) return static_cast<uint32_t>(it->second);
    const auto id = static_cast<uint32_t>(texts.size());
    texts.emplace_back(text);
    index.emplace(texts.back(), static_cast<int32_t>(id));
    return id;
  }
  // The id of the text FieldValue reads from the criteria field of a record; kNoText with `failure`
  // set when the record is missing or its value has no text.
  uint32_t ReadText(const clsOfflineRecord* record, FieldFinder& criteria, std::string& failure) {
    if (!record) {
      failure = RuntimeErrorText(errnum::kSubscriptOutOfRange);
      return kNoText;
    }
    try {
      scratch.clear();
      if (const clsOfflineField* field = criteria.In(*record)) {
        internal::AppendValueText(scratch, internal::StoredValue(*field));
      }
      return TextId(scratch);
    } catch (const std::exception& e) {
      failure = internal::FailureDescription(e);
    }
    return kNoText;
  }
  void Clear() {
    text_ids.clear();
    place_of.clear();
    failures.clear();
    texts.clear();
    index.clear();
    group_text.clear();
  }

  std::vector<uint32_t> text_ids;  // by position in criteria order
  // Where record i of the collection goes, when the records still stand in their old order and the
  // caller moves them once it has read them; empty when they are sorted already.
  std::vector<uint32_t> place_of;
  std::vector<std::pair<size_t, std::string>> failures;  // by position: why its text is missing
  std::deque<std::string> texts;                         // the distinct texts, by id
  internal::TextMap index;                               // text -> id
  std::string scratch;
  // Set when the groups and their sums were found together with the order: the text of each group.
  std::vector<uint32_t> group_text;
};

// The text the recordset's text order sorts a field by, before lower-casing (its Anything as text),
// for the fields whose key is that text in lower case: status not set, and a text or a whole or
// floating number. False for anything else, which the recordset's own sort then handles.
bool PlainSortText(const clsOfflineField& field, std::string& buffer, std::string_view& text) {
  if (field.IsStatusSet()) return false;
  const Variant& value = field.varValue;
  switch (value.Type()) {
    case VarType::String: text = value.AsString(); return true;
    case VarType::Long:
    case VarType::Integer:
    case VarType::Byte:
    case VarType::Double:
      buffer.clear();
      internal::AppendValueText(buffer, value);
      text = buffer;
      return true;
    default: return false;
  }
}

// SortKeyText of an ASCII text is the text in lower case; false for any other text.
bool AsciiSortKey(std::string_view text, std::string& key) {
  key.clear();
  for (char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
    key.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c);
  }
  return true;
}

// Orders the parent's records ascending in text order by the criteria column, as
// DataLayer::SortRecordset does, and reads their criteria texts in that order.
//
// When every key is plain (see PlainSortText, AsciiSortKey) and no progress display is wanted, the
// order is worked out here rather than by the recordset: records with equal keys form one bucket, the
// buckets are ordered by key, and each record goes to the next place of its bucket in the order the
// records stand. That is the stable sort by key which the recordset's sort gives, found in one pass
// over the records in their memory order and a sort of the distinct keys; the records are left where
// they are and `place_of` says where they go. Otherwise the recordset sorts and the texts are read
// from the sorted records.
//
// The same pass adds each record's values to the sums of its criteria text. When each bucket holds
// one text only (no two texts differ in letter case alone) and the criteria field is the sorted field,
// every bucket is one group, and those sums are the groups' sums: `group_text` is set then. Otherwise
// the sums are dropped and the caller adds the values up group by group.
void OrderByCriteria(DataLayer& parent, const std::string& criteria_field, bool with_progress, FieldFinder& criteria,
                     CriteriaOrder& order, GroupSums& sums) {
  const int32_t column = parent.FieldID(criteria_field);  // reports an unknown name, as the sort does
  auto recordset = parent.GetOfflineRecordset();
  if (!recordset) return;
  const int32_t record_count = recordset->RecordCount();
  const auto& records = recordset->RecordCollection()->Items();
  const size_t count = record_count > 0 ? static_cast<size_t>(record_count) : 0;

  bool plain = !with_progress && column >= 1 && count >= 2 && count == records.size() &&
               count < std::numeric_limits<uint32_t>::max();
  if (plain) {
    constexpr uint32_t kNoBucket = std::numeric_limits<uint32_t>::max();
    std::vector<uint32_t> bucket_of_text;  // by text id; kNoBucket until its key is known
    std::vector<std::string> bucket_keys;
    std::vector<uint32_t> bucket_texts;    // how many texts share each bucket
    internal::TextMap bucket_index;        // key -> bucket
    std::vector<uint32_t> bucket_of(count);
    std::vector<uint32_t> text_of(count);
    bool one_group_per_bucket = true;
    std::string buffer;
    std::string key;
    for (size_t i = 0; i < count; ++i) {
      const clsOfflineRecord* record = records[i].get();
      const clsOfflineField* field = record ? record->FieldAt(column) : nullptr;
      std::string_view text;
      if (!field || !PlainSortText(*field, buffer, text)) {
        plain = false;
        break;
      }
      const uint32_t id = order.TextId(text);
      if (id >= bucket_of_text.size()) bucket_of_text.resize(id + 1, kNoBucket);
      if (bucket_of_text[id] == kNoBucket) {
        if (!AsciiSortKey(text, key)) {
          plain = false;
          break;
        }
        auto it = bucket_index.find(std::string_view(key));
        if (it == bucket_index.end()) {
          it = bucket_index.emplace(key, static_cast<int32_t>(bucket_keys.size())).first;
          bucket_keys.push_back(key);
          bucket_texts.push_back(0);
        }
        bucket_of_text[id] = static_cast<uint32_t>(it->second);
        if (++bucket_texts[bucket_of_text[id]] > 1) one_group_per_bucket = false;
      }
      bucket_of[i] = bucket_of_text[id];
      // The criteria text is the sort field's own text, unless FieldValue finds another field.
      if (criteria.In(*record) == field) {
        text_of[i] = id;
      } else {
        one_group_per_bucket = false;
        std::string failure;
        text_of[i] = order.ReadText(record, criteria, failure);
        if (!failure.empty()) order.failures.emplace_back(i, std::move(failure));  // re-keyed below
      }
      if (one_group_per_bucket) sums.Add(*record, id, i);
    }
    if (plain) {
      std::vector<uint32_t> by_key(bucket_keys.size());
      for (uint32_t b = 0; b < by_key.size(); ++b) by_key[b] = b;
      std::sort(by_key.begin(), by_key.end(), [&](uint32_t x, uint32_t y) { return bucket_keys[x] < bucket_keys[y]; });
      std::vector<size_t> next(bucket_keys.size(), 0);
      for (uint32_t b : bucket_of) ++next[b];
      size_t start = 0;
      for (uint32_t b : by_key) start += std::exchange(next[b], start);
      order.place_of.resize(count);
      order.text_ids.resize(count);
      for (size_t i = 0; i < count; ++i) {
        const auto to = static_cast<uint32_t>(next[bucket_of[i]]++);
        order.place_of[i] = to;
        order.text_ids[to] = text_of[i];
      }
      for (auto& [i, failure] : order.failures) i = order.place_of[i];
      if (one_group_per_bucket) {
        // Bucket by_key[g] is group g; its one text is the text of its first record.
        std::vector<uint32_t> text_of_bucket(bucket_keys.size(), 0);
        for (size_t id = 0; id < bucket_of_text.size(); ++id) {
          if (bucket_of_text[id] != kNoBucket) text_of_bucket[bucket_of_text[id]] = static_cast<uint32_t>(id);
        }
        order.group_text.resize(by_key.size());
        for (size_t g = 0; g < by_key.size(); ++g) order.group_text[g] = text_of_bucket[by_key[g]];
        sums.Reorder(order.group_text);  // the sums were kept by text id
        for (auto& [i, failure] : sums.Failures()) i = order.place_of[i];
      } else {
        sums.Clear();
      }
      return;
    }
    order.Clear();  // a key that is not plain: the recordset sorts after all
    sums.Clear();
  }

  try {
    int32_t sort_column = column;
    bool ascending = true;
    bool descending = false;
    bool number_only = false;
    bool progress = with_progress;
    recordset->RecordsetSort(sort_column, ascending, descending, number_only, progress);
  } catch (const std::exception& e) {
    parent.ErrorStatus(internal::OperationError("SortRecordset", e));
  }
  const int32_t walked = parent.RecordCount();
  order.text_ids.reserve(static_cast<size_t>(std::max(walked, 0)));
  for (int32_t i = 1; i <= walked; ++i) {
    std::string failure;
    order.text_ids.push_back(order.ReadText(recordset->Records(i).get(), criteria, failure));
    if (!failure.empty()) order.failures.emplace_back(order.text_ids.size() - 1, std::move(failure));
  }
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

  FieldFinder criteria(CriteriaField);
  CriteriaOrder order;
  GroupSums sums(names, CriteriaField);
  if (parent) {
    steps.Run([&] { OrderByCriteria(*parent, CriteriaField, WithProgressBar, criteria, order, sums); });
  } else {
    steps.Fail(RuntimeErrorText(errnum::kObjectNotSet));
  }

  steps.Run([&] {
    std::string description = kPivotDescription;
    std::string fields = ValueFieldsDividedBySemicolon.find(CriteriaField) != std::string::npos
                             ? "ID;" + ValueFieldsDividedBySemicolon
                             : "ID;" + CriteriaField + ";" + ValueFieldsDividedBySemicolon;
    result->CreateNewVirtualOfflineTable(description, fields);
  });

  const size_t count = order.text_ids.size();
  const auto total = static_cast<int32_t>(count);
  frmProgress progress;
  if (WithProgressBar) {
    for (int32_t i = 1; i <= total; ++i) {
      steps.Run([&] {
        int32_t position = i;
        int32_t all = total;
        progress.SetProgress(position, all, kProgressText);
        progress.Show();
      });
    }
  }

  if (order.group_text.empty() && count > 0) {
    // The groups: a record whose criteria text differs from the one before opens a new group. A record
    // whose text cannot be read opens none; its values count for the group before it, if any.
    constexpr uint32_t kNoGroup = std::numeric_limits<uint32_t>::max();
    std::vector<uint32_t> group_at(count, kNoGroup);  // the group of each position
    for (size_t position = 0; position < count; ++position) {
      const uint32_t text = order.text_ids[position];
      if (text != CriteriaOrder::kNoText && (order.group_text.empty() || text != order.group_text.back())) {
        order.group_text.push_back(text);
      }
      if (!order.group_text.empty()) group_at[position] = static_cast<uint32_t>(order.group_text.size() - 1);
    }
    // The sums, in one pass over the records as they stand in the collection: their memory order when
    // they have not been moved yet.
    const auto& records = parent->GetOfflineRecordset()->RecordCollection()->Items();
    for (size_t i = 0; i < count && i < records.size(); ++i) {
      const size_t position = order.place_of.empty() ? i : order.place_of[i];
      if (group_at[position] != kNoGroup && records[i]) sums.Add(*records[i], group_at[position], position);
    }
  }

  // The failure reported is the last one in criteria order, values after their record's text.
  std::vector<std::pair<size_t, std::string>>* lists[] = {&order.failures, &sums.Failures()};
  const std::string* last_failure = nullptr;
  size_t last_at = 0;
  for (auto* list : lists) {
    for (const auto& [position, failure] : *list) {
      if (!last_failure || position >= last_at) {
        last_at = position;
        last_failure = &failure;
      }
    }
  }
  if (last_failure) steps.Fail(*last_failure);

  // The records move into criteria order once they have been read.
  if (!order.place_of.empty()) {
    auto& records = parent->GetOfflineRecordset()->RecordCollection()->Items();
    std::vector<std::shared_ptr<clsOfflineRecord>> sorted(records.size());
    for (size_t i = 0; i < records.size(); ++i) sorted[order.place_of[i]] = std::move(records[i]);
    records.swap(sorted);
  }
  // The walk leaves the parent's cursor on the last record, as moving to each record in turn does.
  if (parent && count > 0) parent->MoveSpecific(total);

  for (size_t group = 0; group < order.group_text.size(); ++group) {
    steps.Run([&] {
      result->AddNew();
      result->SetFieldValue(CriteriaField, Variant(order.texts[order.group_text[group]]));
      for (size_t k = 0; k < sums.Slots(); ++k) {
        if (sums.Summed(group, k)) result->SetFieldValue(sums.SlotName(k), Variant(sums.Sum(group, k)));
      }
    });
  }

  FillIds(*result, steps);
  if (WithProgressBar) progress.Unload();
  if (!steps.LastFailure().empty()) Report(kPivotFailure + steps.LastFailure());
  return result;
}

std::shared_ptr<DataLayer> clsAnalyzer::PivotCountOnly(const std::string& CriteriaField) {
  Steps steps;
  auto result = std::make_shared<DataLayer>();

  const int32_t id = ResolveField(CriteriaField);
  internal::DistinctValues distinct = internal::GatherDistinct(records_.get(), id, true);
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
