// DataLayer: filters, permanent removal by condition, finding a record, the full-text search and
// removing repeated values.
//
// Everything here works on the offline records only; removed records leave the record collection and
// are never deleted from the database. Each removal is one pass over the records (the recordset's
// DeleteOutfilteredRecords, or a compaction here), never a removal per record.
#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "datalayer/datalayer_internal.h"
#include "datalayer/unfiltered_copy.h"
#include "offline/offline_sort.h"
#include "offline/record_release.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsFilter.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/text_util.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

// The number of pieces of the field list FullTextSearch looks at.
constexpr int32_t kMaxSearchFields = 10;

// The operator that names the records a filter throws away: the mirror image of the one given, not its
// negation. So ">" 100 throws away what is below 100 and keeps 100 itself; "=" and "<>" swap exactly.
std::string MirroredOperator(const std::string& op) {
  if (op == "=") return "<>";
  if (op == "<>") return "=";
  if (op == ">") return "<";
  if (op == "<") return ">";
  if (op == ">=") return "<=";
  if (op == "<=") return ">=";
  return op;
}

using RecordList = std::vector<std::shared_ptr<clsOfflineRecord>>;



// The field's Value as text, lower-cased, into `out` (whose storage is reused from record to record).
void LowerText(const clsOfflineField& field, std::string& out) {
  const Variant& value = field.varValue;
  if (value.IsString()) {
    out.assign(value.AsString());
  } else if (value.IsNull() || value.IsEmpty()) {
    out.clear();
  } else {
    out = ToText(value);
  }
  if (!internal::IsAscii(out)) {
    out = LCase(out);
    return;
  }
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
  }
}

}  // namespace

// Filter: keeps the records whose field `strFieldname` does NOT satisfy the mirrored test (">" keeps
// value >= compare value, ">=" keeps value > it, "<" keeps <=, "<=" keeps <, "=" and "<>" keep the
// equal and the different records). Lists the filter in the thread's filter list unless
// `bolNoAddCollection`; a first (non-additional) filter restores an active one and takes the unfiltered
// copy, an additional one narrows further. Always Empty; a failure (the list gone with another
// DataLayer, a compare value of "*") leaves silently, an unknown field removes nothing.
Variant DataLayer::Filter(const std::string& strFieldname, std::string strOperator, Variant varCompareValue,
                          bool bolAdditionalFilter, bool bolNoAddCollection) {
  try {
    if (!bolNoAddCollection) {
      // The list belongs to the thread: once any DataLayer of the thread has ended it is gone, and the
      // filter gives up here, as it always has.
      auto& list = State().filter_list;
      if (!list) return {};
      auto filter = std::make_shared<clsFilter>();
      filter->strFieldname = strFieldname;
      filter->strOperator = strOperator;
      filter->bolAdditionalFilter = bolAdditionalFilter;
      filter->varCompareValue = varCompareValue;
      list->Add(std::move(filter));
    }
    const std::string removal = MirroredOperator(strOperator);
    if (!bolAdditionalFilter && filter_active_) DeleteFilter();
    MoveFirst();
    const int32_t field = FieldID(strFieldname);
    // The copy is taken before anything is removed, so DeleteFilter brings back the records exactly as
    // they were, including changes made before the filter; changes made while it is active are lost.
    if (!bolAdditionalFilter) {
      unfiltered_.reset();
      if (recordset_) {
        std::exception_ptr failure;
        unfiltered_ = UnfilteredCopy::TakeAndRemove(*recordset_, field, removal, varCompareValue, failure);
        if (failure) std::rethrow_exception(failure);
      }
    } else if (recordset_) {
      recordset_->DeleteOutfilteredRecords(field, removal, varCompareValue);
    }
    filter_active_ = true;
  } catch (...) {
    // A filter that fails leaves without a word: the records stay as far as it had come.
  }
  return {};
}

// DeleteFilter: makes the copy taken by the first filter the current recordset again (changes made
// while filtered are lost) and clears the filter-active flag; nothing when no filter is active. The
// filter list stays. Always Empty.
Variant DataLayer::DeleteFilter() {
  if (!filter_active_) return {};
  if (unfiltered_) {
    try {
      recordset_ = unfiltered_->Restore(recordset_);
    } catch (const std::exception& e) {
      // Out of memory, the copy's own or a new record's: nothing changed, the filter stays active and
      // can be undone later.
      ErrorStatus(internal::OperationError("DeleteFilter", e));
      return {};
    }
  } else {
    recordset_.reset();
  }
  unfiltered_.reset();
  filter_active_ = false;
  return {};
}

// RemoveOfflineRecordsIf: removes for good every record whose field satisfies the test as given (no
// mirroring, no copy, the filter flag untouched). Reports "DataLayer.RemoveRecordsIF: " + the error's
// description; an unknown field removes nothing. A cursor beyond the last record moves onto it.
void DataLayer::RemoveOfflineRecordsIf(const std::string& FieldName, const std::string& Operator,
                                       const Variant& varMatch) {
  try {
    const int32_t field = FieldID(FieldName);
    if (recordset_) recordset_->DeleteOutfilteredRecords(field, Operator, varMatch);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("DataLayer.RemoveRecordsIF", e));
  }
  // The cursor stays on its position while that still exists.
  if (cursor_ > RecordCount()) cursor_ = RecordCount();
}

// FindRecord: True with the cursor on the first record whose field value equals `varCompareValue`
// (texts case-sensitive, Null never equal); False with the cursor on 1 when none does.
bool DataLayer::FindRecord(const std::string& strFieldname, const Variant& varCompareValue) {
  try {
    MoveFirst();
    const int32_t count = RecordCount();
    for (int32_t position = 1; position <= count; ++position) {
      cursor_ = position;
      if (Equals(FieldValue(strFieldname), varCompareValue)) return true;
    }
    cursor_ = 1;
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("FindRecord", e));
  }
  return false;
}

// FullTextSearch: the positions (Longs, ascending) of the records in which one of the search words
// occurs, case-insensitively, in one of the search fields; with `strHitListFields` one text line per hit
// instead ("value;value", a Null as nothing), the cursor left where it was. Words: those followed by a
// blank (so the last word of several is not searched), or the whole text when there is none. Fields:
// up to ten names separated by ";", else all but "ID" and the auto-GUID column. An empty collection for
// an empty search text or no records; on a failure the positions found so far.
std::shared_ptr<Collection<Variant>> DataLayer::FullTextSearch(const std::string& strSearchString,
                                                               const std::string& strLimitToFieldNames,
                                                               const std::string& strHitListFields) {
  // On a failure the positions found so far are the result.
  auto hits = std::make_shared<Collection<Variant>>();
  try {
    const int32_t count = RecordCount();
    if (strSearchString.empty() || count <= 0 || !recordset_) return hits;

    // A word is taken only when a blank follows it: "a b" searches "a", a single word is searched whole.
    const auto pieces = SplitToCollection(strSearchString, " ", false, true, true);
    std::vector<std::string> words(pieces->begin(), pieces->end());
    if (words.empty()) words.push_back(LCase(strSearchString));

    // The fields: up to ten named ones (blanks removed, empty pieces skipped), else every field of the
    // first record but "ID" and the auto-GUID column. A name that is not found is reported by FieldID
    // and searched nowhere.
    std::vector<int32_t> fields;
    bool limited = false;
    const std::string names = ReplaceText(strLimitToFieldNames, " ", "");
    for (int32_t n = 1; n <= kMaxSearchFields; ++n) {
      const std::string name = Trim(GetToken(names, ";", n));
      if (name.empty()) continue;
      limited = true;
      if (const int32_t id = FieldID(name); id > 0) fields.push_back(id);
    }
    if (!limited) {
      const std::string guid_column = UCase(State().auto_guid_column);
      if (auto first = recordset_->Records(1)) {
        for (int32_t j = 1; j <= first->FieldCount(); ++j) {
          const std::string name = UCase(first->FieldAt(j)->Description.view());
          if (name != "ID" && name != guid_column) fields.push_back(j);
        }
      }
    }

    // Positions are visited in order, so the hit list comes out ascending.
    const auto& records = recordset_->RecordCollection()->Items();
    const auto visited = static_cast<int32_t>(std::min<size_t>(static_cast<size_t>(count), records.size()));
    std::string text;
    for (int32_t position = 1; position <= visited; ++position) {
      const clsOfflineRecord* record = records[static_cast<size_t>(position - 1)].get();
      if (record == nullptr) continue;
      bool hit = false;
      for (int32_t id : fields) {
        const clsOfflineField* field = record->FieldAt(id);
        if (field == nullptr) continue;  // a record short of the field has nothing to find there
        LowerText(*field, text);
        for (const std::string& word : words) {
          if (text.find(word) != std::string::npos) {
            hit = true;
            break;
          }
        }
        if (hit) break;
      }
      if (hit) hits->Add(Variant(position));
    }
    if (strHitListFields.empty()) return hits;

    // One line per hit: the named fields' values, each followed by ";", without the last ";".
    const auto line_fields = SplitToCollection(strHitListFields, ";", false, false, false);
    auto lines = std::make_shared<Collection<Variant>>();
    const int32_t saved = cursor_;
    for (const Variant& position : *hits) {
      MoveSpecific(position.AsLong());
      std::string line;
      for (const std::string& name : *line_fields) {
        line += ToText(FieldValue(name));
        line += ';';
      }
      if (!line.empty()) line.pop_back();
      lines->Add(Variant(std::move(line)));
    }
    cursor_ = saved;
    return lines;
  } catch (const std::exception&) {
    return hits;
  }
}

// RemoveMultipleEntries: sorts the records ascending by the field (text order) and keeps the first
// record of each run of equal values (Nulls equal nothing). Always Empty; reports
// "RemoveMultipleEntries: " + the error's description. A cursor beyond the last record moves onto it.
Variant DataLayer::RemoveMultipleEntries(const std::string& strField) {
  try {
    if (RecordCount() <= 0 || !recordset_) return {};
    int32_t field = FieldID(strField);
    if (field == 0) return {};
    RecordList& records = recordset_->RecordCollection()->Items();
    // The ascending text sort decides the order. Only its order is computed, and the kept records are
    // placed once; when a record lacks the field the sort itself runs (it ends early with its error)
    // and the records are taken as it left them.
    std::optional<std::vector<uint32_t>> order = internal::AscendingTextOrder(*recordset_, field);
    if (!order) {
      bool ascending = true, descending = false;
      recordset_->RecordsetSort(field, ascending, descending);
      order.emplace(std::min(static_cast<size_t>(RecordCount()), records.size()));
      for (size_t i = 0; i < order->size(); ++i) (*order)[i] = static_cast<uint32_t>(i);
    }
    const size_t count = order->size();

    // Each record is compared with the last one kept: the result of removing, again and again, the
    // second record of the first pair of equal neighbours. Nulls (and records short of the field) equal
    // nothing, so they all stay. The values are looked up front to back, in the order the records lie
    // in memory; marking comes first, so a failing comparison removes nothing.
    std::vector<const Variant*> values(count, nullptr);
    for (size_t i = 0; i < count; ++i) {
      if (const clsOfflineField* cell = records[i] ? records[i]->FieldAt(field) : nullptr) values[i] = &cell->varValue;
    }
    std::vector<bool> repeated(count, false);
    size_t repeats = 0;
    const Variant* kept = nullptr;
    for (uint32_t position : *order) {
      const Variant* current = values[position];
      if (kept != nullptr && current != nullptr && Equals(*kept, *current)) {
        repeated[position] = true;
        ++repeats;
      } else {
        kept = current;
      }
    }

    RecordList placed;
    placed.reserve(records.size() - repeats);
    for (uint32_t position : *order) {
      if (!repeated[position]) placed.push_back(std::move(records[position]));
    }
    for (size_t i = count; i < records.size(); ++i) placed.push_back(std::move(records[i]));
    // The repeated records are left, and go in the order of their positions, which is mostly the order
    // they lie in memory.
    RecordList removed;
    removed.reserve(repeats);
    for (size_t i = 0; i < count; ++i) {
      if (repeated[i]) removed.push_back(std::move(records[i]));
    }
    records.swap(placed);
    recordset_->SetRecordCount(recordset_->RecordCount() - static_cast<int32_t>(repeats));
    internal::ReleaseInAddressOrder(removed);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("RemoveMultipleEntries", e));
  }
  if (cursor_ > RecordCount()) cursor_ = RecordCount();
  return {};
}

}  // namespace quorbex
