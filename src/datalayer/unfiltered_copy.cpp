#include "datalayer/unfiltered_copy.h"

#include <algorithm>
#include <new>
#include <optional>
#include <stdexcept>
#include <unordered_set>
#include <utility>

#include "offline/record_match.h"
#include "quorbex/errors.h"

namespace quorbex::internal {

namespace {

using RecordList = std::vector<std::shared_ptr<clsOfflineRecord>>;

// True when no pointer to any of the record's fields is held outside the record (the fields of one
// Add call share one count, which is then the number of them held here).
bool FieldsHeldOnlyHere(clsOfflineRecord& record) {
  auto collection = record.FieldCollection();
  const auto& fields = collection->Items();
  if (fields.empty()) return true;
  const auto& first = fields.front();
  const auto shares_first = [&](const std::shared_ptr<clsOfflineField>& field) {
    return !field.owner_before(first) && !first.owner_before(field);
  };
  if (static_cast<size_t>(first.use_count()) == fields.size() &&
      std::all_of(fields.begin(), fields.end(), shares_first)) {
    return true;
  }
  return std::all_of(fields.begin(), fields.end(), [](const auto& field) { return field.use_count() == 1; });
}

// True when nothing reaches the record or its fields but `record` itself and `others` more pointers
// to the record that the caller knows of, and its field counter agrees with its fields. Once those
// others are gone the record cannot be told from a fresh clone of itself, so it may stand in for one.
bool HeldOnlyHere(const std::shared_ptr<clsOfflineRecord>& record, long others = 0) {
  return record && record.use_count() == 1 + others && record->FieldCounter() == record->FieldCount() &&
         FieldsHeldOnlyHere(*record);
}

// A new record with every field of `original` (value, name, type, change mark, status) and its marks;
// an empty new record for a missing one.
std::shared_ptr<clsOfflineRecord> CloneOf(const clsOfflineRecord* original) {
  auto copy = std::make_shared<clsOfflineRecord>();
  if (original == nullptr) return copy;
  const int32_t fields = original->FieldCount();
  copy->Add(fields);
  for (int32_t j = 1; j <= fields; ++j) *copy->FieldAt(j) = *original->FieldAt(j);
  copy->HasChanged = original->HasChanged;
  copy->NewlyAdded = original->NewlyAdded;
  return copy;
}

}  // namespace

std::unique_ptr<UnfilteredCopy> UnfilteredCopy::TakeAndRemove(clsOfflineRecordset& recordset, int32_t field,
                                                              const std::string& op, const Variant& compare_value,
                                                              std::exception_ptr& failure) {
  RecordList& records = recordset.RecordCollection()->Items();
  const int32_t count = recordset.RecordCount();
  const size_t tested = field != 0 && count > 0 ? std::min(static_cast<size_t>(count), records.size()) : 0;

  // The copy is built before the recordset changes, so that running out of memory leaves it as it was.
  auto copy = std::unique_ptr<UnfilteredCopy>(new UnfilteredCopy);
  copy->entries_.reserve(records.size());
  copy->snapshots_.reserve(records.size());
  for (const auto& record : records) {
    if (!record) continue;
    try {
      // Room for every value; the part that kept records do not use is never touched. Where that much
      // address space is not to be had, the values grow as they come.
      copy->values_.reserve(records.size() * static_cast<size_t>(record->FieldCount()));
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    break;
  }

  // One pass tests each record and copies it while it is in the cache. Where a test raises, the walk
  // from the back would have stopped: only the matches behind it count, and the copies of the matches
  // before it are turned into those of kept records afterwards.
  std::vector<bool> matches(tested, false);
  size_t failed_at = 0;  // one past the last record whose test raised
  if (field != 0 && count > 0 && static_cast<size_t>(count) > records.size()) {
    // The walk would begin with a record the collection does not hold: nothing is tested or removed.
    failure = std::make_exception_ptr(RuntimeError(errnum::kSubscriptOutOfRange, "DataLayer.Filter"));
    failed_at = tested;
  }
  for (size_t i = 0; i < records.size(); ++i) {
    if (i >= failed_at && i < tested) {
      try {
        matches[i] = internal::FieldMatches(records[i].get(), field, op, compare_value, "DataLayer.Filter");
      } catch (...) {
        failure = std::current_exception();
        failed_at = i + 1;
      }
    }
    if (i >= tested || !matches[i]) {
      copy->Keep(records[i]);
    } else if (HeldOnlyHere(records[i])) {
      copy->entries_.push_back({records[i]});
    } else {
      copy->entries_.push_back({CloneOf(records[i].get())});
    }
  }
  size_t doomed = 0;
  for (size_t i = 0; i < tested; ++i) {
    if (!matches[i]) continue;
    if (i >= failed_at) {
      ++doomed;
      continue;
    }
    // Kept after all: the record stays in the recordset, so the copy needs its snapshot unless it took
    // a clone, which is a copy of its own.
    if (copy->entries_[i].record == records[i]) copy->entries_[i].snapshot = copy->Snap(*records[i]);
    matches[i] = false;
  }
  copy->record_count_ = count;
  copy->read_only_ = recordset.RecordsetIsReadOnly;
  copy->tag_ = recordset.Tag;
  copy->parent_ = recordset.Parent;

  // Then the removal, which cannot fail: one compaction.
  size_t next = 0;
  for (size_t i = 0; i < records.size(); ++i) {
    if (i < tested && matches[i]) continue;
    if (next != i) records[next] = std::move(records[i]);
    ++next;
  }
  records.erase(records.begin() + static_cast<std::ptrdiff_t>(next), records.end());
  recordset.SetRecordCount(count - static_cast<int32_t>(doomed));
  return copy;
}

void UnfilteredCopy::Keep(const std::shared_ptr<clsOfflineRecord>& record) {
  if (!record) {
    entries_.push_back({std::make_shared<clsOfflineRecord>()});
  } else {
    entries_.push_back({record, Snap(*record)});
  }
}

uint32_t UnfilteredCopy::Snap(const clsOfflineRecord& record) {
  const int32_t count = record.FieldCount();
  if (shapes_.empty() || !HasShape(record, shapes_.back())) {
    shapes_.push_back({templates_.size(), static_cast<uint32_t>(count), record.HasChanged, record.NewlyAdded});
    for (int32_t j = 1; j <= count; ++j) {
      templates_.push_back(*record.FieldAt(j));
      templates_.back().varValue = Variant();
    }
  }
  snapshots_.push_back({values_.size(), static_cast<uint32_t>(shapes_.size() - 1)});
  for (int32_t j = 1; j <= count; ++j) values_.push_back(record.FieldAt(j)->varValue);
  return static_cast<uint32_t>(snapshots_.size() - 1);
}

bool UnfilteredCopy::HasShape(const clsOfflineRecord& record, const Shape& shape) const {
  if (static_cast<int32_t>(shape.field_count) != record.FieldCount() || shape.has_changed != record.HasChanged ||
      shape.newly_added != record.NewlyAdded) {
    return false;
  }
  for (uint32_t j = 0; j < shape.field_count; ++j) {
    const clsOfflineField& model = templates_[shape.first_template + j];
    const clsOfflineField& field = *record.FieldAt(static_cast<int32_t>(j + 1));
    if (!model.Description.SharesStorageWith(field.Description) || model.lngFieldType != field.lngFieldType ||
        model.HasChanged != field.HasChanged || model.IsStatusSet() != field.IsStatusSet() ||
        model.Status() != field.Status()) {
      return false;
    }
  }
  return true;
}

void UnfilteredCopy::SwapValues(clsOfflineRecord& record, const Snapshot& snapshot) noexcept {
  const uint32_t count = shapes_[snapshot.shape].field_count;
  for (uint32_t j = 0; j < count; ++j) {
    std::swap(record.FieldAt(static_cast<int32_t>(j + 1))->varValue, values_[snapshot.first_value + j]);
  }
}

std::shared_ptr<clsOfflineRecordset> UnfilteredCopy::Restore(std::shared_ptr<clsOfflineRecordset>& filtered) {
  auto copy = std::make_shared<clsOfflineRecordset>();
  RecordList& items = copy->RecordCollection()->Items();
  items.reserve(entries_.size());
  RecordList fresh(snapshots_.size());  // the new records that replace kept ones, by snapshot

  // A kept record can take its snapshot back when it still has its shape (names, types and marks) and
  // nothing holds it or its fields but this copy and, once at most, the filtered recordset that is
  // about to go. Every other kept record is replaced by a new one. The filtered records are mostly the
  // kept ones in their order, less those removed since, so one cursor over them finds each; only a
  // record held twice that the cursor misses (the filtered records were sorted, say) makes it look
  // them all up.
  std::shared_ptr<clsOfflineRecordset::RecordCollectionType> collection;
  const RecordList* filtered_records = nullptr;
  if (filtered && filtered.use_count() == 1) {
    collection = filtered->RecordCollection();
    if (collection.use_count() == 2) filtered_records = &collection->Items();  // the recordset's and this one
  }
  size_t cursor = 0;
  std::optional<std::unordered_set<const clsOfflineRecord*>> members;
  const auto in_filtered = [&](const std::shared_ptr<clsOfflineRecord>& record) {
    if (filtered_records == nullptr) return false;
    if (cursor < filtered_records->size() && (*filtered_records)[cursor] == record) {
      ++cursor;
      return true;
    }
    if (record.use_count() != 2) return false;  // whether it is there or not, it is held elsewhere too
    if (!members) {
      members.emplace(filtered_records->size());
      for (const auto& held : *filtered_records) members->insert(held.get());
    }
    return members->count(record.get()) != 0;
  };

  // The values change places with the snapshot's, in one pass while each record is in the cache. The
  // filtered recordset still exists meanwhile, so running out of memory puts every value back and
  // leaves the filtered recordset and this copy as they were.
  size_t done = 0;
  try {
    for (; done < entries_.size(); ++done) {
      const Entry& entry = entries_[done];
      if (entry.snapshot == kNoSnapshot) continue;
      const Snapshot& snapshot = snapshots_[entry.snapshot];
      const Shape& shape = shapes_[snapshot.shape];
      const long others = in_filtered(entry.record) ? 1 : 0;
      if (HeldOnlyHere(entry.record, others) && HasShape(*entry.record, shape)) {
        SwapValues(*entry.record, snapshot);
        continue;
      }
      auto record = std::make_shared<clsOfflineRecord>();
      record->Add(static_cast<int32_t>(shape.field_count));
      for (uint32_t j = 0; j < shape.field_count; ++j) {
        *record->FieldAt(static_cast<int32_t>(j + 1)) = templates_[shape.first_template + j];
      }
      record->HasChanged = shape.has_changed;
      record->NewlyAdded = shape.newly_added;
      SwapValues(*record, snapshot);
      fresh[entry.snapshot] = std::move(record);
    }
  } catch (...) {
    for (size_t k = 0; k < done; ++k) {
      const Entry& entry = entries_[k];
      if (entry.snapshot == kNoSnapshot) continue;
      clsOfflineRecord& holder = fresh[entry.snapshot] ? *fresh[entry.snapshot] : *entry.record;
      SwapValues(holder, snapshots_[entry.snapshot]);
    }
    throw;
  }

  // Nothing can fail from here on. Without the filtered recordset each remaining original is this
  // copy's alone.
  filtered_records = nullptr;
  collection.reset();
  filtered.reset();
  for (Entry& entry : entries_) {
    const bool replaced = entry.snapshot != kNoSnapshot && fresh[entry.snapshot];
    items.push_back(replaced ? std::move(fresh[entry.snapshot]) : std::move(entry.record));
  }
  copy->SetRecordCount(record_count_);
  copy->RecordsetIsReadOnly = read_only_;
  copy->Tag = std::move(tag_);
  copy->Parent = std::move(parent_);
  return copy;
}

}  // namespace quorbex::internal
