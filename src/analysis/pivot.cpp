// clsAnalyzer::Pivot and PivotCountOnly: summaries of the records by the values of one field, returned
// as a new virtual table.
//
// Pivot sorts the parent's records by the criteria field and then walks them once: a record whose
// criteria text differs from the one before opens a new result record. Each record's criteria text and
// values are read once into compact rows (see PivotRows), and the sums of a group are kept as numbers
// while the group runs and written into its result record when the group ends. That gives the same
// fields as adding each record's value to the result field one by one, without a lookup by name per
// record and field, and without walking records that the sort has scattered over the heap.
//
// PivotCountOnly gathers the distinct values and the count of each in a single pass (see
// analysis::GatherDistinct), instead of counting the whole table again for every distinct value.
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

// Fills the result's ID column with GUIDs. SetAutoGuidColumn also makes "ID" the thread's auto-GUID
// column; the pivot puts the caller's setting back, so that later AddNew calls on other tables are not
// affected by a summary having been built.
void FillIds(DataLayer& result, Steps& steps) {
  std::string& column = State().auto_guid_column;
  const std::string saved = column;
  steps.Run([&] { result.SetAutoGuidColumn("ID", true); });
  column = saved;
}


// What the summing needs of each record, read once into compact arrays in the order the records
// stand after the sort: the text of its criteria value, as an id into a table of the distinct texts,
// and its value fields read as numbers. The summing then walks these arrays front to back instead of
// records that the sort has scattered over the heap.
struct PivotRows {
  static constexpr uint32_t kNoText = std::numeric_limits<uint32_t>::max();

  explicit PivotRows(const std::vector<std::string>& value_names) : names(value_names) {}

  size_t Count() const noexcept { return text_ids.size(); }
  size_t Stride() const noexcept { return names.size() + 1; }

  void Clear() {
    text_ids.clear();
    values.clear();
    failures.clear();
    texts.clear();
    text_index.clear();
  }

  // The id of a text in the table of distinct texts, added when new.
  uint32_t TextId(std::string_view text) {
    auto it = text_index.find(text);
    if (it != text_index.end()) return static_cast<uint32_t>(it->second);
    const auto id = static_cast<uint32_t>(texts.size());
    texts.emplace_back(text);
    text_index.emplace(texts.back(), static_cast<int32_t>(id));
    return id;
  }

  // The failure of field j of a row (j == names.size(): the record or its criteria text), or nullptr.
  const std::string* Failure(size_t row, size_t j) const {
    if (failures.empty()) return nullptr;
    auto it = failures.find(row * Stride() + j);
    return it == failures.end() ? nullptr : &it->second;
  }
  void Fail(size_t row, size_t j, const std::exception& e) {
    const auto* automation = dynamic_cast<const AutomationError*>(&e);
    failures.insert_or_assign(row * Stride() + j, automation ? automation->Description() : std::string(e.what()));
  }

  // Reads one record into the next row. `criteria_id`, when not kNoText, is the id of the criteria
  // text the caller has already read.
  void Gather(const clsOfflineRecord* record, FieldFinder& criteria, std::vector<FieldFinder>& sources,
              uint32_t criteria_id = kNoText) {
    const size_t row = text_ids.size();
    text_ids.push_back(kNoText);
    values.resize(values.size() + names.size(), 0.0);
    if (!record) {
      // Neither the criteria nor any value of a missing record can be read.
      for (size_t j = 0; j <= names.size(); ++j) failures.insert_or_assign(row * Stride() + j, "Subscript out of range");
      return;
    }
    try {
      if (criteria_id == kNoText) {
        const clsOfflineField* field = criteria.In(*record);
        scratch.clear();
        if (field) analysis::AppendValueText(scratch, analysis::StoredValue(*field));
        criteria_id = TextId(scratch);
      }
      text_ids[row] = criteria_id;
    } catch (const std::exception& e) {
      Fail(row, names.size(), e);
    }
    for (size_t j = 0; j < names.size(); ++j) {
      try {
        const clsOfflineField* field = sources[j].In(*record);
        values[row * names.size() + j] = field ? SumValue(analysis::StoredValue(*field)) : 0.0;
      } catch (const std::exception& e) {
        Fail(row, j, e);
      }
    }
  }

  const std::vector<std::string>& names;
  std::vector<uint32_t> text_ids;  // per row; kNoText for a record that could not be read
  std::vector<double> values;      // row-major, one per value name
  std::unordered_map<size_t, std::string> failures;
  std::deque<std::string> texts;   // the distinct criteria texts, by id
  analysis::TextCounts text_index;  // text -> id
  std::string scratch;
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
      analysis::AppendValueText(buffer, value);
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

// Sorts the parent's records ascending in text order by the criteria column, as
// DataLayer::SortRecordset does, and gathers the rows in the sorted order.
//
// When every key is plain (see PlainSortText, AsciiSortKey) and no progress display is wanted, the
// order is made here: records with equal keys form one bucket, the buckets are ordered by key, and
// each record goes to the next place of its bucket in the order the records stood. That is the stable
// sort by key which the recordset's sort gives, made in one pass over the records in their memory
// order, a sort of the distinct keys, and one pass placing rows and records. Otherwise the recordset
// sorts, and the rows are gathered from the sorted records.
void SortAndGather(DataLayer& parent, const std::string& criteria_field, bool with_progress, PivotRows& rows) {
  FieldFinder criteria(criteria_field);
  std::vector<FieldFinder> sources;
  for (const std::string& name : rows.names) sources.emplace_back(name);

  const int32_t column = parent.FieldID(criteria_field);  // reports an unknown name, as the sort does
  auto recordset = parent.GetOfflineRecordset();
  if (!recordset) return;
  const int32_t record_count = recordset->RecordCount();
  auto& records = recordset->RecordCollection()->Items();
  const size_t count = record_count > 0 ? static_cast<size_t>(record_count) : 0;

  bool fast = !with_progress && column >= 1 && count >= 2 && count == records.size() &&
              count < std::numeric_limits<uint32_t>::max();
  if (fast) {
    constexpr uint32_t kNoBucket = std::numeric_limits<uint32_t>::max();
    std::vector<uint32_t> bucket_of_text;  // by text id; kNoBucket for texts that are no sort key
    std::vector<std::string> bucket_keys;
    analysis::TextCounts bucket_index;     // key -> bucket
    std::vector<uint32_t> bucket_of(count);
    rows.text_ids.reserve(count);
    rows.values.reserve(count * rows.names.size());
    std::string buffer;
    std::string key;
    for (size_t i = 0; i < count && fast; ++i) {
      const clsOfflineRecord* record = records[i].get();
      const clsOfflineField* field = record ? record->FieldAt(column) : nullptr;
      std::string_view text;
      if (!field || !PlainSortText(*field, buffer, text)) {
        fast = false;
        break;
      }
      const uint32_t id = rows.TextId(text);
      if (id >= bucket_of_text.size()) bucket_of_text.resize(id + 1, kNoBucket);
      if (bucket_of_text[id] == kNoBucket) {
        if (!AsciiSortKey(text, key)) {
          fast = false;
          break;
        }
        auto it = bucket_index.find(std::string_view(key));
        if (it == bucket_index.end()) {
          it = bucket_index.emplace(key, static_cast<int32_t>(bucket_keys.size())).first;
          bucket_keys.push_back(key);
        }
        bucket_of_text[id] = static_cast<uint32_t>(it->second);
      }
      bucket_of[i] = bucket_of_text[id];
      // The criteria text is the sort field's own text when FieldValue finds that same field.
      rows.Gather(record, criteria, sources, criteria.In(*record) == field ? id : PivotRows::kNoText);
    }
    if (fast) {
      std::vector<uint32_t> by_key(bucket_keys.size());
      for (uint32_t b = 0; b < by_key.size(); ++b) by_key[b] = b;
      std::sort(by_key.begin(), by_key.end(), [&](uint32_t a, uint32_t b) { return bucket_keys[a] < bucket_keys[b]; });
      std::vector<size_t> next(bucket_keys.size(), 0);
      for (uint32_t b : bucket_of) ++next[b];
      size_t place = 0;
      for (uint32_t b : by_key) place += std::exchange(next[b], place);

      // Rows and records go to their places in one pass; the writes advance through each bucket's
      // stretch in turn, so they stay cache-friendly.
      const size_t width = rows.names.size();
      std::vector<uint32_t> text_ids(count);
      std::vector<double> values(count * width);
      std::vector<std::shared_ptr<clsOfflineRecord>> sorted(count);
      std::vector<uint32_t> place_of(rows.failures.empty() ? 0 : count);
      for (size_t i = 0; i < count; ++i) {
        const size_t to = next[bucket_of[i]]++;
        text_ids[to] = rows.text_ids[i];
        for (size_t j = 0; j < width; ++j) values[to * width + j] = rows.values[i * width + j];
        sorted[to] = std::move(records[i]);
        if (!place_of.empty()) place_of[i] = static_cast<uint32_t>(to);
      }
      records.swap(sorted);  // the collection holds exactly the counted records
      rows.text_ids = std::move(text_ids);
      rows.values = std::move(values);
      if (!rows.failures.empty()) {
        std::unordered_map<size_t, std::string> moved;
        for (auto& [index, description] : rows.failures) {
          const size_t row = index / rows.Stride();
          moved.emplace(place_of[row] * rows.Stride() + index % rows.Stride(), std::move(description));
        }
        rows.failures = std::move(moved);
      }
      return;
    }
    rows.Clear();  // a key that is not plain: start over with the recordset's sort
  }

  try {
    int32_t sort_column = column;
    bool ascending = true;
    bool descending = false;
    bool number_only = false;
    bool progress = with_progress;
    recordset->RecordsetSort(sort_column, ascending, descending, number_only, progress);
  } catch (const std::exception& e) {
    parent.ErrorStatus(std::string("SortRecordset: ") + e.what());
  }
  const int32_t walked = parent.RecordCount();
  for (int32_t i = 1; i <= walked; ++i) {
    auto record = recordset->Records(i);
    rows.Gather(record.get(), criteria, sources);
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

  // Sorting and gathering: afterwards the parent's records stand in criteria order and `rows` holds,
  // in that order, what the summing needs of each of them.
  PivotRows rows(names);
  if (parent) {
    steps.Run([&] { SortAndGather(*parent, CriteriaField, WithProgressBar, rows); });
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
  for (size_t j = 0; j < names.size(); ++j) {
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

  const size_t count = rows.Count();
  const auto total = static_cast<int32_t>(count);
  const size_t width = names.size();
  frmProgress progress;
  uint32_t previous = PivotRows::kNoText;
  bool in_group = false;
  for (size_t row = 0; row < count; ++row) {
    if (WithProgressBar) {
      steps.Run([&] {
        int32_t position = static_cast<int32_t>(row + 1);
        int32_t all = total;
        progress.SetProgress(position, all, kProgressText);
        progress.Show();
      });
    }
    const uint32_t current = rows.text_ids[row];
    if (current == PivotRows::kNoText) {
      // The record, or the text of its criteria value, could not be read.
      if (const std::string* failure = rows.Failure(row, width)) steps.Fail(*failure);
    } else if (!in_group || current != previous) {
      steps.Run([&] {
        if (in_group) flush();
        result->AddNew();
        previous = current;
        in_group = true;
        result->SetFieldValue(CriteriaField, Variant(rows.texts[current]));
      });
    }
    if (!in_group) continue;
    for (size_t j = 0; j < width; ++j) {
      if (slot_of[j] < 0) continue;
      if (const std::string* failure = rows.Failure(row, j)) {
        steps.Fail(*failure);
        continue;
      }
      Slot& slot = slots[static_cast<size_t>(slot_of[j])];
      slot.sum += rows.values[row * width + j];
      slot.has_value = true;
    }
  }
  if (in_group) steps.Run(flush);
  // The walk leaves the parent's cursor on the last record, as moving to each record in turn does.
  if (parent && count > 0) parent->MoveSpecific(total);

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
