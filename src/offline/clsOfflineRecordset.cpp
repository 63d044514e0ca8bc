#include "quorbex/clsOfflineRecordset.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

#include "offline/offline_errors.h"
#include "offline/record_match.h"
#include "offline/record_release.h"
#include "platform/message_box.h"
#include "service/modService.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr const char* kFieldDimTitle = "OfflineRecordset.FieldDim";
constexpr const char* kFieldDimMessage =
    "Sie können nur ein Feld hinzufügen, wenn Sie eine Feldbeschreibung verwenden. Lassen Sie entweder die "
    "Feldbeschreibung leer oder fügen Sie nur ein Feld hinzu!\r\nDie Aktion wurde abgebrochen!";

}  // namespace

clsOfflineRecordset::clsOfflineRecordset() : records_(std::make_shared<RecordCollectionType>()) {}

clsOfflineRecordset::~clsOfflineRecordset() { internal::ReleaseInAddressOrder(records_); }

namespace {

// Whether the record at `position` (1-based, counted) matches the filter: the test both filter
// operations make, raising as they document when the record or its field is missing.
bool RecordMatches(const clsOfflineRecordset::RecordCollectionType& records, int32_t position,
                   int32_t field_id, internal::ValueTest& test, const char* source) {
  const std::shared_ptr<clsOfflineRecord>& record = records.Item(position);  // 9 when missing
  return internal::FieldMatches(record.get(), field_id, test, source);
}

}  // namespace

std::shared_ptr<clsOfflineRecordset::RecordCollectionType> clsOfflineRecordset::GetHitRecords(
    int32_t lngFilterFieldID, const std::string& strOperator, const Variant& varCompareValue) const {
  if (lngFilterFieldID == 0) return nullptr;
  constexpr const char* kSource = "clsOfflineRecordset.GetHitRecords";
  try {
    // The tests first, then the hits into a collection of their exact size: growing it hit by hit
    // would copy the collection again and again, which cost more than the tests themselves.
    internal::ValueTest test(varCompareValue, strOperator);
    std::vector<uint8_t> hit(static_cast<size_t>(std::max(record_count_, 0)), 0);
    size_t count = 0;
    for (int32_t i = 1; i <= record_count_; ++i) {
      if (RecordMatches(*records_, i, lngFilterFieldID, test, kSource)) {
        hit[static_cast<size_t>(i - 1)] = 1;
        ++count;
      }
    }
    auto hits = std::make_shared<RecordCollectionType>();
    hits->Reserve(count);
    for (size_t i = 0; i < hit.size(); ++i) {
      if (hit[i]) hits->Items().push_back(records_->Items()[i]);
    }
    return hits;
  } catch (const std::bad_alloc&) {
    internal::RaiseOutOfMemory(kSource);
  }
}

void clsOfflineRecordset::OverwriteRecordCollection(std::shared_ptr<RecordCollectionType> RecordCollection) {
  auto replacement = RecordCollection ? std::move(RecordCollection) : std::make_shared<RecordCollectionType>();
  if (replacement != records_) internal::ReleaseInAddressOrder(records_);
  records_ = std::move(replacement);
  record_count_ = records_->Count();
}

std::shared_ptr<clsOfflineRecordset::RecordCollectionType> clsOfflineRecordset::RecordCollection() const noexcept {
  return records_;
}

Variant clsOfflineRecordset::DeleteOutfilteredRecords(int32_t lngFilterFieldID, const std::string& strOperator,
                                                      const Variant& varCompareValue) {
  if (lngFilterFieldID == 0 || record_count_ < 1) return {};
  // Removing records one by one from the back would cost a shift of the tail for every hit. The tests
  // run in the same order (last record first) and only mark; one compaction then removes the marked
  // records. Removing a record never moves those before it, so the marks are exactly the records the
  // one-by-one walk removes, also when a test raises part way: everything marked so far goes, the rest
  // stays, and the error is passed on afterwards.
  constexpr const char* kSource = "clsOfflineRecordset.DeleteOutfilteredRecords";
  std::vector<bool> doomed;
  int32_t removed = 0;
  std::exception_ptr failure;
  try {
    // A count above the collection fails on its first test, before anything is marked.
    doomed.assign(std::min(static_cast<size_t>(record_count_), records_->Items().size()), false);
    internal::ValueTest test(varCompareValue, strOperator);
    for (int32_t i = record_count_; i >= 1; --i) {
      if (RecordMatches(*records_, i, lngFilterFieldID, test, kSource)) {
        doomed[static_cast<size_t>(i - 1)] = true;
        ++removed;
      }
    }
  } catch (const std::bad_alloc&) {
    failure = std::make_exception_ptr(internal::OutOfMemoryError(kSource));
  } catch (...) {
    failure = std::current_exception();
  }
  if (removed > 0) {
    auto& items = records_->Items();
    size_t kept = 0;
    for (size_t i = 0; i < items.size(); ++i) {
      if (i < doomed.size() && doomed[i]) continue;
      if (kept != i) items[kept] = std::move(items[i]);
      ++kept;
    }
    items.erase(items.begin() + static_cast<std::ptrdiff_t>(kept), items.end());
    record_count_ -= removed;
  }
  if (failure) std::rethrow_exception(failure);
  return {};
}

Variant clsOfflineRecordset::FieldDim(int32_t lngNumberOfFields, const std::string& FieldDescription) {
  if (lngNumberOfFields >= 2 && !FieldDescription.empty()) {
    platform::MsgBox(kFieldDimMessage, platform::vbExclamation | platform::vbOKOnly, kFieldDimTitle);
    return {};
  }
  InternedName name;
  try {
    name = FieldDescription;  // one stored name for the whole column
  } catch (...) {
    return {};  // the name pool is full: nothing can be named
  }
  auto& items = records_->Items();
  for (int32_t i = 1; i <= record_count_; ++i) {
    if (static_cast<size_t>(i) > items.size()) break;  // the missing records would all fail alike
    clsOfflineRecord* record = items[static_cast<size_t>(i - 1)].get();
    if (record == nullptr) continue;
    try {
      record->Add(lngNumberOfFields);
      if (!name.empty()) {
        if (clsOfflineField* last = record->FieldAt(record->FieldCount())) last->Description = name;
      }
    } catch (...) {
      // A record that cannot take the fields is left as it is; the others still get theirs.
    }
  }
  return {};
}

int32_t clsOfflineRecordset::RecordCount() const noexcept { return record_count_; }

void clsOfflineRecordset::Destroy() {
  auto empty = std::make_shared<RecordCollectionType>();
  internal::ReleaseInAddressOrder(records_);
  records_ = std::move(empty);
  record_count_ = 0;
}

std::shared_ptr<clsOfflineRecord> clsOfflineRecordset::Records(int32_t Index) const noexcept {
  if (Index < 1 || Index > records_->Count()) return nullptr;
  return records_->Items()[static_cast<size_t>(Index - 1)];
}

Variant clsOfflineRecordset::Remove(int32_t lngPosRecord) {
  if (lngPosRecord < 1 || lngPosRecord > records_->Count()) return {};
  records_->Remove(lngPosRecord);
  // A count already at its lowest stays (the decrement would overflow; the removal stands).
  if (record_count_ > std::numeric_limits<int32_t>::min()) --record_count_;
  return {};
}

Variant clsOfflineRecordset::Add(int32_t intNumberOfRecords) {
  if (intNumberOfRecords <= 0) return {};
  if (record_count_ > std::numeric_limits<int32_t>::max() - intNumberOfRecords) {
    RaiseRuntimeError(errnum::kOverflow, "clsOfflineRecordset.Add");
  }
  auto& items = records_->Items();
  const auto count = static_cast<size_t>(intNumberOfRecords);
  try {
    if (items.capacity() - items.size() < count) {
      items.reserve(items.empty() ? count : std::max(items.size() + count, items.size() + items.size() / 2));
    }
    const size_t old_size = items.size();
    try {
      for (size_t i = 0; i < count; ++i) items.push_back(std::make_shared<clsOfflineRecord>());
    } catch (...) {
      items.resize(old_size);
      throw;
    }
  } catch (const std::bad_alloc&) {
    internal::RaiseOutOfMemory("clsOfflineRecordset.Add");
  } catch (const std::length_error&) {
    internal::RaiseOutOfMemory("clsOfflineRecordset.Add");
  }
  record_count_ += intNumberOfRecords;
  return {};
}

void clsOfflineRecordset::RemoveField(int32_t FieldIndex) {
  const std::shared_ptr<clsOfflineRecord>& first = records_->Item(1);  // 9 when there is no record
  if (!first) internal::RaiseObjectNotSet("clsOfflineRecordset.RemoveField");
  if (first->FieldCount() > FieldIndex) return;
  auto& items = records_->Items();
  for (int32_t i = 1; i <= record_count_ && static_cast<size_t>(i) <= items.size(); ++i) {
    if (auto& record = items[static_cast<size_t>(i - 1)]) record->Remove(FieldIndex);
  }
}

void clsOfflineRecordset::SetRecordCount(int32_t lngRecordCount) noexcept { record_count_ = lngRecordCount; }

}  // namespace quorbex
