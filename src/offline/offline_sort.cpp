// Sorting of the offline recordset: RecordsetSort and RecordsetInnerSort.
//
// The order is defined by a repeated exchange of out-of-order neighbours, which is stable and, in
// number order, never moves a record whose value is not numeric. Such a sort ends in a unique state:
// every stretch between two non-numeric records (the whole table in text order) stably sorted by its
// keys. We compute that state directly: each key once, then std::stable_sort per stretch on the
// precomputed keys, then one permutation of the record pointers. Everything that can fail (the keys,
// the buffers) happens before the first record moves, so a failure leaves the order as it was.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "offline/offline_errors.h"
#include "offline/offline_sort.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/frmProgress.h"
#include "quorbex/locale.h"
#include "value/number_text.h"
#include "service/modService.h"
#include "value/text_util.h"

namespace quorbex {

using namespace internal;

namespace {

using RecordList = std::vector<std::shared_ptr<clsOfflineRecord>>;

constexpr const char* kProgressText = "Sortiere...";
constexpr const char* kShortRecordText = "Sortrecordset: FieldColumn Index is higher than fieldcount!";

// ---- Progress ------------------------------------------------------------------------------------

// The default display: the progress window, drawn by the installed renderer.
class FormDisplay final : public clsOfflineRecordset::SortProgress {
 public:
  void SetProgress(int32_t position, int32_t total, const std::string& description) override {
    form_.SetProgress(position, total, description);
    form_.Show();
  }
  void Unload() override { form_.Unload(); }

 private:
  frmProgress form_;
};

std::mutex& MakerMutex() {
  static std::mutex mutex;
  return mutex;
}

clsOfflineRecordset::SortProgressMaker& InstalledMaker() {
  static clsOfflineRecordset::SortProgressMaker maker;
  return maker;
}

// Drives the display of one sort: total steps of work, of which the sort reports how many are done;
// the display hears of it only when the percentage moves, and is unloaded when the sort ends.
class Progress {
 public:
  Progress(bool wanted, size_t work) : work_(std::max<size_t>(work, 1)) {
    if (!wanted) return;
    clsOfflineRecordset::SortProgressMaker maker;
    {
      std::lock_guard lock(MakerMutex());
      maker = InstalledMaker();
    }
    try {
      display_ = maker ? maker() : std::make_unique<FormDisplay>();
    } catch (...) {
      display_.reset();  // no display is no reason not to sort
    }
    total_ = static_cast<int32_t>(std::min<size_t>(work_, std::numeric_limits<int32_t>::max()));
  }
  ~Progress() {
    if (!display_) return;
    try {
      display_->Unload();
    } catch (...) {
    }
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // `done` of the work is finished (at least the first step is always shown).
  void Done(size_t done) {
    if (!display_) return;
    done = std::clamp<size_t>(done, 1, work_);
    const auto position = static_cast<int32_t>(static_cast<double>(done) / static_cast<double>(work_) * total_);
    const int32_t shown = std::clamp(position, 1, total_);
    const int64_t percent = static_cast<int64_t>(shown) * 100 / total_;
    if (percent == last_percent_) return;
    last_percent_ = percent;
    try {
      display_->SetProgress(shown, total_, kProgressText);
    } catch (...) {
    }
  }
  bool Shown() const noexcept { return display_ != nullptr; }

 private:
  size_t work_;
  int32_t total_ = 1;
  int64_t last_percent_ = -1;
  std::unique_ptr<clsOfflineRecordset::SortProgress> display_;
};

// ---- Keys ----------------------------------------------------------------------------------------


// SortKeyText of the field's Anything as text. Plain ASCII needs nothing but lower-casing (all the
// replaced letters lie beyond ASCII), which spares the general routine most of the work.
std::string TextKey(const clsOfflineField& field) {
  std::string text;
  if (field.IsStatusSet()) {
    text = ToText(Variant(field.Status()));
  } else if (field.varValue.IsString()) {
    text = field.varValue.AsString();
  } else if (!field.varValue.IsNull()) {
    text = ToText(field.varValue);
  }
  if (internal::IsAscii(text)) {
    internal::LowerAsciiInPlace(text);
    return text;
  }
  return SortKeyText(text);
}

// The number a record sorts by in number order, or nothing when its Value is not numeric (the record
// then holds its place). That number is Val of the value's text; for whole numbers whose text is
// exact, that is the value itself and the text need not be made.
std::optional<double> NumberKey(const clsOfflineField& field) {
  const Variant& value = field.varValue;
  switch (value.Type()) {
    case VarType::Null:
      return std::nullopt;  // Value reads "", which is not numeric
    case VarType::Byte:
      return value.AsByte();
    case VarType::Integer:
      return value.AsInteger();
    case VarType::Long:
      return value.AsLong();
    case VarType::Double: {
      const double d = value.AsDouble();
      if (std::fabs(d) < 1e15 && d == std::trunc(d)) return d + 0.0;  // + 0.0: Val reads "0" for -0
      break;
    }
    case VarType::Single: {
      const double d = value.AsSingle();
      if (std::fabs(d) < 1e7 && d == std::trunc(d)) return d + 0.0;
      break;
    }
    default:
      break;
  }
  if (!IsNumeric(value)) return std::nullopt;
  try {
    return Val(value);
  } catch (const AutomationError&) {
    return std::nullopt;  // a value whose text cannot be read holds its place like any non-number
  }
}

// ---- Orders --------------------------------------------------------------------------------------

struct TextEntry {
  std::string key;
  uint32_t index;
};

struct NumberEntry {
  double key;
  uint32_t index;
  bool raw;  // the key is the Double itself, not yet Val of its text
};

template <class Entry>
void StableSortEntries(typename std::vector<Entry>::iterator first, typename std::vector<Entry>::iterator last,
                       bool ascending) {
  if (ascending) {
    std::stable_sort(first, last, [](const Entry& a, const Entry& b) { return a.key < b.key; });
  } else {
    std::stable_sort(first, last, [](const Entry& a, const Entry& b) { return b.key < a.key; });
  }
}

// Puts records[order[0]], records[order[1]], ... into positions 0, 1, ... Only the buffer can fail,
// before anything moved.
void ApplyOrder(RecordList& records, const std::vector<uint32_t>& order) {
  RecordList sorted;
  sorted.reserve(order.size());
  for (uint32_t from : order) sorted.push_back(std::move(records[from]));
  std::move(sorted.begin(), sorted.end(), records.begin());
}

template <class Entry>
std::vector<uint32_t> OrderOf(const std::vector<Entry>& entries) {
  std::vector<uint32_t> order;
  order.reserve(entries.size());
  for (const Entry& entry : entries) order.push_back(entry.index);
  return order;
}

bool OutOfOrder(const std::string& left, const std::string& right, bool ascending) {
  return ascending ? right < left : left < right;
}

bool OutOfOrder(double left, double right, bool ascending) { return ascending ? right < left : left < right; }

// The part of the first exchange pass that runs before it meets the short record at `stop`: the
// neighbours (0,1) ... (stop-2, stop-1) are compared and exchanged in turn.
void FirstPassBefore(RecordList& records, size_t stop, int32_t column, bool ascending, bool numbers) {
  if (stop < 2) return;
  if (numbers) {
    std::vector<std::optional<double>> keys(stop);
    for (size_t i = 0; i < stop; ++i) keys[i] = NumberKey(*records[i]->FieldAt(column));
    for (size_t i = 0; i + 1 < stop; ++i) {
      if (keys[i] && keys[i + 1] && OutOfOrder(*keys[i], *keys[i + 1], ascending)) {
        std::swap(keys[i], keys[i + 1]);
        std::swap(records[i], records[i + 1]);
      }
    }
  } else {
    std::vector<std::string> keys(stop);
    for (size_t i = 0; i < stop; ++i) keys[i] = TextKey(*records[i]->FieldAt(column));
    for (size_t i = 0; i + 1 < stop; ++i) {
      if (OutOfOrder(keys[i], keys[i + 1], ascending)) {
        std::swap(keys[i], keys[i + 1]);
        std::swap(records[i], records[i + 1]);
      }
    }
  }
}

// The stable order of `keys` when few of them differ, as columns of categories, places or states do:
// each distinct key is sorted once and the positions are then dealt out by key in their own order, a
// counting sort. nullopt as soon as more than one key in sixteen turns out to be new: then sorting all
// of them is the better way, and little was spent on finding that out.
std::optional<std::vector<uint32_t>> GroupedOrder(const std::vector<std::string>& keys, bool ascending) {
  const size_t limit = keys.size() / 16;
  std::unordered_map<std::string_view, uint32_t> group_of_key;
  std::vector<std::string_view> distinct;
  std::vector<uint32_t> group(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    const auto [it, added] = group_of_key.try_emplace(keys[i], static_cast<uint32_t>(distinct.size()));
    if (added) {
      if (distinct.size() == limit) return std::nullopt;
      distinct.push_back(keys[i]);
    }
    group[i] = it->second;
  }
  std::vector<uint32_t> ranked(distinct.size());
  for (uint32_t g = 0; g < ranked.size(); ++g) ranked[g] = g;
  std::sort(ranked.begin(), ranked.end(), [&](uint32_t a, uint32_t b) {
    return ascending ? distinct[a] < distinct[b] : distinct[b] < distinct[a];
  });
  // Where each group's positions begin in the result.
  std::vector<size_t> next(distinct.size(), 0);
  for (uint32_t g : group) ++next[g];
  size_t start = 0;
  for (uint32_t g : ranked) start += std::exchange(next[g], start);
  std::vector<uint32_t> order(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) order[next[group[i]]++] = static_cast<uint32_t>(i);
  return order;
}

// The text order of records 0 to count-1 (which all have the column) as their positions.
std::vector<uint32_t> TextOrder(const RecordList& records, size_t count, int32_t column, bool ascending,
                                Progress* progress) {
  std::vector<std::string> keys;
  keys.reserve(count);
  const size_t step = std::max<size_t>(count / 100, 1);
  for (size_t i = 0; i < count; ++i) {
    keys.push_back(TextKey(*records[i]->FieldAt(column)));
    if (progress != nullptr && i % step == 0) progress->Done(i + 1);
  }
  if (progress != nullptr) progress->Done(count);
  if (auto order = GroupedOrder(keys, ascending)) return std::move(*order);
  std::vector<TextEntry> entries;
  entries.reserve(count);
  for (size_t i = 0; i < count; ++i) entries.push_back({std::move(keys[i]), static_cast<uint32_t>(i)});
  StableSortEntries<TextEntry>(entries.begin(), entries.end(), ascending);
  return OrderOf(entries);
}

void SortByText(RecordList& records, size_t count, int32_t column, bool ascending, Progress& progress) {
  ApplyOrder(records, TextOrder(records, count, column, ascending, &progress));
  progress.Done(2 * count);
}

// Val of a Double's text is its value rounded to 15 significant digits and read back: under a "."
// decimal point a monotone function that moves no value by more than 1e-14 of itself. So the Doubles
// can be sorted by their own values, which spares making their texts, and only where neighbours lie
// so close that the rounding could make them equal (or reorder them against an exact key) is the real
// key made. Inside such a cluster equal keys then go back to their old order. Under a decimal comma
// Val reads only the integer part, and not even that of the exponent form, so every key is made.
bool Close(double a, double b) noexcept {
  return std::fabs(a - b) <= 1e-12 * std::max(std::fabs(a), std::fabs(b)) + 1e-300;
}

void SettleClusters(std::vector<NumberEntry>::iterator first, std::vector<NumberEntry>::iterator last,
                    const RecordList& records, int32_t column, bool ascending) {
  while (first != last) {
    auto end = first + 1;
    bool any_raw = first->raw, any_exact = !first->raw, differ = false;
    while (end != last && Close((end - 1)->key, end->key)) {
      any_raw = any_raw || end->raw;
      any_exact = any_exact || !end->raw;
      differ = differ || end->key != first->key;
      ++end;
    }
    // Equal Doubles have equal texts and are in their old order already; exact keys are exact.
    if (any_raw && (any_exact || differ)) {
      for (auto entry = first; entry != end; ++entry) {
        if (!entry->raw) continue;
        entry->key = NumberKey(*records[entry->index]->FieldAt(column)).value_or(entry->key);
        entry->raw = false;
      }
      std::sort(first, end, [ascending](const NumberEntry& a, const NumberEntry& b) {
        if (a.key != b.key) return ascending ? a.key < b.key : b.key < a.key;
        return a.index < b.index;
      });
    }
    first = end;
  }
}

void SortByNumber(RecordList& records, size_t count, int32_t column, bool ascending, Progress& progress) {
  // Non-numeric records stay as entries of their own, at their place, and cut the sort into stretches.
  const bool raw_doubles = Locale::Current().decimal_separator == ".";
  std::vector<NumberEntry> entries;
  std::vector<bool> fixed(count, false);
  entries.reserve(count);
  const size_t step = std::max<size_t>(count / 100, 1);
  for (size_t i = 0; i < count; ++i) {
    const clsOfflineField& field = *records[i]->FieldAt(column);
    const Variant& value = field.varValue;
    if (raw_doubles && value.Type() == VarType::Double && std::isfinite(value.AsDouble()) &&
        !(std::fabs(value.AsDouble()) < 1e15 && value.AsDouble() == std::trunc(value.AsDouble()))) {
      entries.push_back({value.AsDouble(), static_cast<uint32_t>(i), true});
    } else {
      const std::optional<double> key = NumberKey(field);
      fixed[i] = !key;
      entries.push_back({key.value_or(0.0), static_cast<uint32_t>(i), false});
    }
    if (i % step == 0) progress.Done(i + 1);
  }
  progress.Done(count);
  size_t begin = 0;
  while (begin < count) {
    if (fixed[begin]) {
      ++begin;
      continue;
    }
    size_t end = begin;
    while (end < count && !fixed[end]) ++end;
    const auto first = entries.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = entries.begin() + static_cast<std::ptrdiff_t>(end);
    StableSortEntries<NumberEntry>(first, last, ascending);
    SettleClusters(first, last, records, column, ascending);
    progress.Done(count + end);
    begin = end;
  }
  ApplyOrder(records, OrderOf(entries));
  progress.Done(2 * count);
}

void SettleDirection(bool& ascending, bool& descending) noexcept {
  if (ascending && descending) descending = false;
  if (!ascending && !descending) ascending = true;
}

// The records the sort works on: 1 to RecordCount, as far as the collection holds them.
size_t CountedRecords(int32_t record_count) noexcept {
  return record_count > 0 ? static_cast<size_t>(record_count) : 0;
}

// Whether position `i` (0-based) holds a record with at least `column` fields.
bool HasColumn(const RecordList& records, size_t i, int32_t column) noexcept {
  return i < records.size() && records[i] && records[i]->FieldCount() >= column;
}

}  // namespace

clsOfflineRecordset::SortProgressMaker clsOfflineRecordset::InstallSortProgress(SortProgressMaker maker) {
  std::lock_guard lock(MakerMutex());
  return std::exchange(InstalledMaker(), std::move(maker));
}

Variant clsOfflineRecordset::RecordsetSort(ByRef<int32_t> lngFieldColumn, ByRef<bool> bolAsc, ByRef<bool> bolDesc,
                                           ByRef<bool> bolNumberOnly, ByRef<bool> WithProgressBar) {
  SettleDirection(*bolAsc, *bolDesc);
  const int32_t column = *lngFieldColumn;
  if (column < 1) return {};
  if (!internal::SortRecordList(records_->Items(), CountedRecords(record_count_), column, *bolAsc, *bolNumberOnly,
                                *WithProgressBar, "clsOfflineRecordset.RecordsetSort")) {
    AppendErrorStatus(kShortRecordText + std::to_string(column));
  }
  return {};
}

Variant clsOfflineRecordset::RecordsetInnerSort(ByRef<int32_t> lngFieldColSortedLast, ByRef<int32_t> lngFieldColToSort,
                                                ByRef<bool> bolAsc, ByRef<bool> bolDesc) {
  SettleDirection(*bolAsc, *bolDesc);
  const int32_t outer = *lngFieldColSortedLast;
  const int32_t inner = *lngFieldColToSort;
  if (outer < 1 || inner < 1) return {};
  const bool ascending = *bolAsc;
  RecordList& records = records_->Items();
  const size_t count = CountedRecords(record_count_);
  if (count < 2) return {};
  // Nothing is sorted when a record lacks a column: the runs could not be told apart.
  for (size_t i = 0; i < count; ++i) {
    for (int32_t column : {outer, inner}) {
      if (!HasColumn(records, i, column)) {
        AppendErrorStatus(kShortRecordText + std::to_string(column));
        return {};
      }
    }
  }
  try {
    std::vector<std::string> runs(count);
    std::vector<TextEntry> entries;
    entries.reserve(count);
    for (size_t i = 0; i < count; ++i) {
      runs[i] = TextKey(*records[i]->FieldAt(outer));
      entries.push_back({TextKey(*records[i]->FieldAt(inner)), static_cast<uint32_t>(i)});
    }
    size_t begin = 0;
    while (begin < count) {
      size_t end = begin + 1;
      while (end < count && runs[end] == runs[begin]) ++end;
      if (end - begin > 1) {
        StableSortEntries<TextEntry>(entries.begin() + static_cast<std::ptrdiff_t>(begin),
                                     entries.begin() + static_cast<std::ptrdiff_t>(end), ascending);
      }
      begin = end;
    }
    ApplyOrder(records, OrderOf(entries));
  } catch (const std::bad_alloc&) {
    internal::RaiseOutOfMemory("clsOfflineRecordset.RecordsetInnerSort");
  } catch (const std::length_error&) {
    internal::RaiseOutOfMemory("clsOfflineRecordset.RecordsetInnerSort");
  }
  return {};
}

namespace internal {

bool SortRecordList(std::vector<std::shared_ptr<clsOfflineRecord>>& records, size_t count, int32_t column,
                    bool ascending, bool numbers, bool with_progress, const char* source) {
  if (column < 1) return true;
  try {
    // Work: computing the keys is one half, sorting and placing the records the other.
    Progress progress(with_progress, 2 * count);
    if (count < 2) {
      progress.Done(2 * count + 1);  // one pass without a single comparison
      return true;
    }

    size_t first_short = 0;
    while (first_short < count && HasColumn(records, first_short, column)) ++first_short;
    if (first_short < count) {
      // Every record takes part in the first pass, so the exchange sort always meets the short record
      // there, after the neighbours before it have been compared: it ends with the error then.
      progress.Done(1);
      FirstPassBefore(records, first_short, column, ascending, numbers);
      return false;
    }
    if (numbers) {
      SortByNumber(records, count, column, ascending, progress);
    } else {
      SortByText(records, count, column, ascending, progress);
    }
  } catch (const std::bad_alloc&) {
    RaiseOutOfMemory(source);
  } catch (const std::length_error&) {
    RaiseOutOfMemory(source);
  }
  return true;
}

std::optional<std::vector<uint32_t>> AscendingTextOrder(const clsOfflineRecordset& recordset, int32_t column) {
  if (column < 1) return std::nullopt;
  const RecordList& records = recordset.RecordCollection()->Items();
  const size_t count = CountedRecords(recordset.RecordCount());
  for (size_t i = 0; i < count; ++i) {
    if (!HasColumn(records, i, column)) return std::nullopt;
  }
  try {
    return TextOrder(records, count, column, true, nullptr);
  } catch (const std::bad_alloc&) {
    RaiseOutOfMemory("clsOfflineRecordset.RecordsetSort");
  } catch (const std::length_error&) {
    RaiseOutOfMemory("clsOfflineRecordset.RecordsetSort");
  }
}

}  // namespace internal

}  // namespace quorbex
